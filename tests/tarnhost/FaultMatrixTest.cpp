// Whatever goes wrong between the library and its service, every operation ends, once, and tells the truth.
#include "Bounded.h"
#include "support/FaultServer.h"
#include "tarn/foundation/ContentReduction.h"
#include "tarn/foundation/OneShotPublisher.h"
#include "tarn/foundation/ReducingSubscriber.h"
#include "tarn/protocol/WireText.h"
#include "tarn/session/SessionMessages.h"
#include "tarnhost/TarnHost.h"

#include <gtest/gtest.h>

#include <atomic>

namespace connector::host::test {
namespace {

using namespace std::chrono_literals;

struct Operation {
    std::string name;
    bool changes; ///< the stored data or the session
    std::function<Future<std::string>(TarnHost&)> call;
    std::string reply = "<Reply/>"; ///< the true one; "it" is the text of the element that is looked at
    std::string truth = "";         ///< what the operation makes of it
    std::string foreign = "";       ///< what it makes of a document that is not the service's
    bool readsXml = true;
    const char* missing = "File not found."; ///< what a 404 means
};

/// What stands in the member at the end of the path, for a list what stands in each of its items.
template <class Record, class First, class... Rest>
std::string found(const Record& record, First first, Rest... rest)
{
    const auto& value = record.*first;
    using Value = std::decay_t<decltype(value)>;
    if constexpr (sizeof...(rest) == 0) {
        if constexpr (std::is_same_v<Value, std::u16string>) return tarn::toWire(value);
        if constexpr (std::is_same_v<Value, std::string>) return value;
        if constexpr (std::is_same_v<Value, common::DataBuffer>) return std::string(value.bytes());
    } else if constexpr (requires { value.begin(); }) {
        std::string all;
        for (const auto& item : value)
            all += "[" + found(item, rest...) + "]";
        return all;
    } else {
        return found(value, rest...);
    }
}

/// Calls `operation` with a request whose texts are filled in, and says what the response holds at `path`.
template <class Area, class Request, class Response, class... Path>
auto call(std::shared_ptr<Area> (TarnHost::*area)() const,
          Future<std::unique_ptr<Response>> (Area::*operation)(std::unique_ptr<Request>&&), Path... path)
{
    return [=](TarnHost& host) {
        auto request = std::make_unique<Request>();
        if constexpr (requires { request->path; }) request->path = u"/a";
        if constexpr (requires { request->content; }) request->content = common::DataBuffer("content");
        if constexpr (requires { request->handleId; }) request->handleId = "h";
        if constexpr (requires { request->linkId; }) request->linkId = "l";
        if constexpr (requires { request->permissionId; }) request->permissionId = "p";
        if constexpr (requires { request->versionId; }) request->versionId = "asked";
        return (((host.*area)().get())->*operation)(std::move(request))
            .then([=](Future<std::unique_ptr<Response>>&& reply) {
                const auto response = reply.get();
                if constexpr (sizeof...(path) == 0)
                    return std::string();
                else
                    return found(*response, path...);
            });
    };
}

using namespace tarn;

template <bool isSizeKnown>
Future<std::string> uploadAFile(TarnHost& host)
{
    using Publisher = reactive_streams::OneShotPublisher<common::DataBuffer>;
    auto request = std::make_unique<FileUpload>();
    request->path = u"/a";
    request->content = std::make_shared<Publisher>(common::DataBuffer("content"));
    if (isSizeKnown) request->size = 7; // otherwise it goes in chunks
    return host.fileTransfer()->uploadFile(std::move(request)).then([](auto&& reply) {
        return reply.get()->versionId;
    });
}

Future<std::string> downloadAFile(TarnHost& host)
{
    using Gathering = reactive_streams::ReducingSubscriber<common::DataBuffer, common::DataBuffer>;
    auto request = std::make_unique<FileDownload>();
    request->path = u"/a";
    const auto content = std::make_shared<Gathering>(common::DataBuffer(), reactive_streams::appendContent);
    request->content = content;
    return host.fileTransfer()->downloadFile(std::move(request)).then([content](auto&& reply) {
        reply.get();
        return std::string(content->getFuture().get().bytes()); // there, since the stream has ended
    });
}

constexpr auto inSession = &TarnHost::session;
constexpr auto inFiles = &TarnHost::fileAccess;
constexpr auto inAccess = &TarnHost::accessControl;
constexpr auto inVersions = &TarnHost::versioning;
constexpr auto inLinks = &TarnHost::publicLinks;

constexpr auto noLinks = "The service makes no links that end, and lists and revokes none.";

const std::vector<Operation> operations = {
    {"login", true, call(inSession, &TarnSession::login, &LoginResponse::sessionId),
     "<R><TarnSessionId>it</TarnSessionId></R>", "it"},
    {"logout", true, call(inSession, &TarnSession::logout)},
    {"ping", false, call(inSession, &TarnSession::ping, &PingResponse::value), "<R><Value>it</Value></R>",
     "it"},
    {"createFile", true, call(inFiles, &FileAccess::createFile, &FileCreateResponse::versionId),
     "<R><VersionId>it</VersionId></R>", "it"},
    {"updateFile", true, call(inFiles, &FileAccess::updateFile, &FileUpdateResponse::versionId),
     "<R><VersionId>it</VersionId></R>", "it"},
    {"readFile", false, call(inFiles, &FileAccess::readFile, &FileReadResponse::content), "a file's content",
     "a file's content", "", false},
    {"uploadFile", true, uploadAFile<true>, "<R><VersionId>it</VersionId></R>", "it"},
    {"uploadFile in chunks", true, uploadAFile<false>, "<R><VersionId>it</VersionId></R>", "it"},
    {"downloadFile", false, downloadAFile, "a file's content", "a file's content", "", false},
    {"deleteFile", true, call(inFiles, &FileAccess::deleteFile)},
    {"readFileAttributes", false,
     call(inFiles, &FileAccess::readFileAttributes, &FileAttributesReadResponse::attributes,
          &FileAttributes::name),
     "<R><FileAttributes><Name>it</Name></FileAttributes></R>", "it"},
    {"openToRead", true,
     call(inFiles, &FileAccess::createReadOnlyFileHandle, &FileHandleReadOnlyCreateResponse::fileHandleId),
     "<R><FileHandleId>it</FileHandleId></R>", "it"},
    {"openToWrite", true,
     call(inFiles, &FileAccess::createReadWriteFileHandle, &FileHandleReadWriteCreateResponse::fileHandleId),
     "<R><FileHandleId>it</FileHandleId></R>", "it"},
    {"closeFileHandle", true, call(inFiles, &FileAccess::closeFileHandle)},
    {"move", true, call(inFiles, &FileAccess::move)},
    {"createFolder", true, call(inFiles, &FileAccess::createFolder)},
    {"listFolder", false,
     call(inFiles, &FileAccess::listFolder, &FolderListResponse::files, &FileSummary::name),
     "<R><Files><File><Name>it</Name></File></Files></R>", "[it]"},
    {"deleteFolder", true, call(inFiles, &FileAccess::deleteFolder)},
    {"listSharedContent", false,
     call(inFiles, &FileAccess::listSharedContent, &SharedContentListResponse::sharedContent,
          &SharedContent::sharedByUserId),
     "<R><SharedContent><SharedByUserId>it</SharedByUserId></SharedContent></R>", "[it]"},
    {"getPublicAccessUrl", false,
     call(inFiles, &FileAccess::getPublicAccessUrl, &PublicAccessUrlGetResponse::url),
     "<R><PublicAccessUrl>it</PublicAccessUrl></R>", "it"},
    {"createLink", true, call(inLinks, &PublicLinks::createLink, &PublicLinkCreateResponse::url),
     "<R><PublicAccessUrl>it</PublicAccessUrl></R>", "it"},
    {"listLinks", false,
     call(inLinks, &PublicLinks::listLinks, &PublicLinkListResponse::links, &PublicLink::linkId),
     "<R><PublicLink><PublicLinkId>it</PublicLinkId></PublicLink></R>", "[it]", "", true, noLinks},
    {"revokeLink", true, call(inLinks, &PublicLinks::revokeLink), "<Reply/>", "", "", true, noLinks},
    {"grantPermission", true,
     call(inAccess, &AccessControl::grantPermission, &PermissionGrantResponse::permissionId),
     "<R><PermissionId>it</PermissionId></R>", "it"},
    {"revokePermission", true, call(inAccess, &AccessControl::revokePermission)},
    {"listPermissions", false,
     call(inAccess, &AccessControl::listPermissions, &PermissionListResponse::permissions,
          &Permission::permissionId),
     "<R><Permission><PermissionId>it</PermissionId></Permission></R>", "[it]"},
    {"listVersions", false,
     call(inVersions, &Versioning::listVersions, &VersionListResponse::versions, &VersionSummary::versionId),
     "<R><VersionSummary><VersionId>it</VersionId></VersionSummary></R>", "[it]"},
    {"restoreVersion", true,
     call(inVersions, &Versioning::restoreVersion, &VersionRestoreResponse::versionId),
     "<R><VersionId>it</VersionId></R>", "it", "asked"},
};

constexpr const char* noConnection = "no connection";
constexpr const char* noReply = "no reply";
constexpr const char* perhaps = "no reply, but it may have happened";

std::string expected(const Operation& operation, const Fault& fault)
{
    if (fault.ending == Ending::truth) return operation.truth;
    if (fault.ending == Ending::noConnection) return noConnection;
    if (fault.ending == Ending::noReply) return operation.changes ? perhaps : noReply;
    if (fault.ending == Ending::error)
        return fault.text == "File not found." ? operation.missing : fault.text;
    const bool isCut = fault.ending == Ending::cut;
    const std::string body = isCut ? operation.reply.substr(0, operation.reply.size() - 1) : fault.text;
    if (!operation.readsXml) return body;
    return fault.ending == Ending::otherXml ? operation.foreign : "TARN error: " + body;
}

std::string outcomeOf(Future<std::string> future)
{
    try {
        return bounded(std::move(future));
    } catch (const TransportError& error) {
        if (error.phase() == TransportPhase::connect) return noConnection;
        EXPECT_EQ(error.phase(), TransportPhase::exchange) << error.what();
        return error.mayHaveHappened() ? perhaps : noReply;
    } catch (const std::exception& error) {
        return error.what();
    }
}

/// One operation against one fault, under way.
class Cell {
public:
    Cell(const Operation& of, const Fault& by)
        : operation(of)
        , fault(by)
        , server(fault, alwaysTrue(operation.reply))
        , host({.endpoint = server.url(), .threads = 1, .http = impatient()})
        , answer(operation.call(host).then([this](Future<std::string>&& result) {
            ++settled;
            return result.get();
        }))
    {
    }

    void check()
    {
        SCOPED_TRACE(operation.name + ", when the service " + fault.name);
        EXPECT_EQ(outcomeOf(std::move(answer)), expected(operation, fault));
        EXPECT_EQ(settled, 1);
        EXPECT_TRUE(server.happened());
        if (operation.changes && fault.door == Fault::Door::open) {
            EXPECT_EQ(server.met().size(), 1u) << "sent again";
        }
    }

private:
    static HttpOptions impatient()
    {
        return {.connectTimeout = 1s,
                .replyTimeout = 1s,
                .stallWindow = 500ms,
                .leastRate = 1000,
                .documentTimeout = 2s,
                .documentLimit = 1 << 20,
                .chunkedContentLimit = 1 << 20};
    }

    const Operation& operation;
    const Fault fault;
    std::atomic<int> settled{0};
    FaultServer server;
    TarnHost host;
    Future<std::string> answer;
};

/// Several faults at a time, since some of them are a long silence.
void expectTruth(const std::vector<Fault>& faults)
{
    constexpr std::size_t atATime = 4;
    for (std::size_t first = 0; first < faults.size(); first += atATime) {
        std::vector<std::unique_ptr<Cell>> cells;
        for (std::size_t i = first; i < std::min(first + atATime, faults.size()); ++i)
            for (const Operation& operation : operations) {
                // Contents that are not gathered may be of any size, and their subscriber decides what is too much.
                if (operation.name == "downloadFile" && faults[i].name == "never ends its chunks") continue;
                cells.push_back(std::make_unique<Cell>(operation, faults[i]));
            }
        for (const auto& cell : cells)
            cell->check();
    }
}

TEST(EveryOperation, TellsTheTruthWhateverTheServiceDoes)
{
    ASSERT_EQ(operations.size(), 28u);
    expectTruth(faults());
}

TEST(EveryOperation, TellsTheTruthWhereverTheHeadOfTheReplyIsCut)
{
    std::vector<Fault> cuts;
    for (std::size_t offset = 0; offset < alwaysTrue("<Reply/>")("").head.size(); ++offset) {
        cuts.push_back(closesInHead(offset));
        cuts.push_back(resetsInHead(offset));
    }
    expectTruth(cuts);
}

} // namespace
} // namespace connector::host::test
