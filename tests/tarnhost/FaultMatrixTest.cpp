// Whatever goes wrong between the library and its service, every operation ends, once, and tells the truth.
#include "Bounded.h"
#include "support/FaultServer.h"

#include "tarn/protocol/WireText.h"
#include "tarn/session/SessionMessages.h"
#include "tarnhost/TarnHost.h"

#include <gtest/gtest.h>

#include <atomic>

namespace connector::host::test {
namespace {

using namespace std::chrono_literals;
using tarn::AccessControl;
using tarn::FileAccess;
using tarn::TarnSession;
using tarn::Versioning;

struct Operation {
    std::string name;
    bool changes; ///< the stored data or the session
    std::function<Future<std::string>(TarnHost&)> call;
    std::string reply = "<Reply/>"; ///< the true one; "it" is the text of the element that is looked at
    std::string truth = "";         ///< what the operation makes of it
    std::string without = "";       ///< the same when the element is missing or ambiguous
    std::string foreign = "";       ///< what it makes of a document that is not the service's
    bool readsXml = true;
};

/// Calls `operation` with a request whose texts are filled in, and says what `read` finds in the response.
template <class Area, class Request, class Response>
auto call(
    std::shared_ptr<Area> (TarnHost::*area)() const,
    Future<std::unique_ptr<Response>> (Area::*operation)(std::unique_ptr<Request>&&),
    std::string (*read)(const Response&) = [](const Response&) { return std::string(); })
{
    return [=](TarnHost& host) {
        auto request = std::make_unique<Request>();
        if constexpr (requires { request->path; }) request->path = u"/a";
        if constexpr (requires { request->content; }) request->content = common::DataBuffer("content");
        if constexpr (requires { request->handleId; }) request->handleId = "h";
        if constexpr (requires { request->permissionId; }) request->permissionId = "p";
        if constexpr (requires { request->versionId; }) request->versionId = "asked";
        return (((host.*area)().get())->*operation)(std::move(request))
            .then([read](Future<std::unique_ptr<Response>>&& response) { return read(*response.get()); });
    };
}

template <class Items, class Text>
std::string listed(const Items& items, Text text)
{
    std::string all;
    for (const auto& item : items)
        all += "[" + text(item) + "]";
    return all;
}

const std::vector<Operation>& operations()
{
    using namespace tarn;
    const auto session = &TarnHost::session;
    const auto files = &TarnHost::fileAccess;
    const auto access = &TarnHost::accessControl;
    const auto versions = &TarnHost::versioning;
    static const std::vector<Operation> table = {
        {"login", true,
         call(
             session, &TarnSession::login, +[](const LoginResponse& r) { return r.sessionId; }),
         "<R><TarnSessionId>it</TarnSessionId></R>", "it"},
        {"logout", true, call(session, &TarnSession::logout)},
        {"ping", false,
         call(
             session, &TarnSession::ping, +[](const PingResponse& r) { return r.value; }),
         "<R><Value>it</Value></R>", "it"},
        {"createFile", true,
         call(
             files, &FileAccess::createFile, +[](const FileCreateResponse& r) { return r.versionId; }),
         "<R><VersionId>it</VersionId></R>", "it"},
        {"updateFile", true,
         call(
             files, &FileAccess::updateFile, +[](const FileUpdateResponse& r) { return r.versionId; }),
         "<R><VersionId>it</VersionId></R>", "it"},
        {"readFile", false,
         call(
             files, &FileAccess::readFile,
             +[](const FileReadResponse& r) { return std::string(r.content.bytes()); }),
         "the content of a file", "the content of a file", "", "", false},
        {"deleteFile", true, call(files, &FileAccess::deleteFile)},
        {"readFileAttributes", false,
         call(
             files, &FileAccess::readFileAttributes,
             +[](const FileAttributesReadResponse& r) { return toWire(r.attributes.name); }),
         "<R><FileAttributes><Name>it</Name></FileAttributes></R>", "it"},
        {"createReadOnlyFileHandle", true,
         call(
             files, &FileAccess::createReadOnlyFileHandle,
             +[](const FileHandleReadOnlyCreateResponse& r) { return r.fileHandleId; }),
         "<R><FileHandleId>it</FileHandleId></R>", "it"},
        {"createReadWriteFileHandle", true,
         call(
             files, &FileAccess::createReadWriteFileHandle,
             +[](const FileHandleReadWriteCreateResponse& r) { return r.fileHandleId; }),
         "<R><FileHandleId>it</FileHandleId></R>", "it"},
        {"closeFileHandle", true, call(files, &FileAccess::closeFileHandle)},
        {"move", true, call(files, &FileAccess::move)},
        {"createFolder", true, call(files, &FileAccess::createFolder)},
        {"listFolder", false,
         call(
             files, &FileAccess::listFolder,
             +[](const FolderListResponse& r) {
                 return listed(r.files, [](const auto& file) { return toWire(file.name); });
             }),
         "<R><Files><File><Name>it</Name></File></Files></R>", "[it]", "[]"},
        {"deleteFolder", true, call(files, &FileAccess::deleteFolder)},
        {"listSharedContent", false,
         call(
             files, &FileAccess::listSharedContent,
             +[](const SharedContentListResponse& r) {
                 return listed(r.sharedContent, [](const auto& of) { return toWire(of.sharedByUserId); });
             }),
         "<R><SharedContent><SharedByUserId>it</SharedByUserId></SharedContent></R>", "[it]", "[]"},
        {"getPublicAccessUrl", false,
         call(
             files, &FileAccess::getPublicAccessUrl,
             +[](const PublicAccessUrlGetResponse& r) { return toWire(r.url); }),
         "<R><PublicAccessUrl>it</PublicAccessUrl></R>", "it"},
        {"grantPermission", true,
         call(
             access, &AccessControl::grantPermission,
             +[](const PermissionGrantResponse& r) { return r.permissionId; }),
         "<R><PermissionId>it</PermissionId></R>", "it"},
        {"revokePermission", true, call(access, &AccessControl::revokePermission)},
        {"listPermissions", false,
         call(
             access, &AccessControl::listPermissions,
             +[](const PermissionListResponse& r) {
                 return listed(r.permissions, [](const auto& grant) { return grant.permissionId; });
             }),
         "<R><Permission><PermissionId>it</PermissionId></Permission></R>", "[it]", "[]"},
        {"listVersions", false,
         call(
             versions, &Versioning::listVersions,
             +[](const VersionListResponse& r) {
                 return listed(r.versions, [](const auto& version) { return version.versionId; });
             }),
         "<R><VersionSummary><VersionId>it</VersionId></VersionSummary></R>", "[it]", "[]"},
        {"restoreVersion", true,
         call(
             versions, &Versioning::restoreVersion,
             +[](const VersionRestoreResponse& r) { return r.versionId; }),
         "<R><VersionId>it</VersionId></R>", "it", "asked", "asked"},
    };
    return table;
}

constexpr const char* noConnection = "no connection";
constexpr const char* noReply = "no reply";
constexpr const char* perhaps = "no reply, but it may have happened";

std::string expected(const Operation& operation, const Fault& fault)
{
    const std::string body =
        fault.ending == Ending::cut ? operation.reply.substr(0, operation.reply.size() - 1) : fault.text;
    switch (fault.ending) {
    case Ending::noConnection:
        return noConnection;
    case Ending::noReply:
        return operation.changes ? perhaps : noReply;
    case Ending::error:
        return fault.text;
    case Ending::notXml:
    case Ending::cut:
        return operation.readsXml ? "TARN error: " + body : body;
    case Ending::otherXml:
        return operation.readsXml ? operation.foreign : body;
    case Ending::truth:
        break;
    }
    return operation.truth;
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
            for (const Operation& operation : operations())
                cells.push_back(std::make_unique<Cell>(operation, faults[i]));
        for (const auto& cell : cells)
            cell->check();
    }
}

TEST(EveryOperation, TellsTheTruthWhateverTheServiceDoes)
{
    ASSERT_EQ(operations().size(), 22u);
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

TEST(EveryOperation, TakesAMissingOrAmbiguousElementForNone)
{
    for (const Operation& operation : operations()) {
        const auto text = operation.reply.find(">it<");
        if (text == std::string::npos) continue;
        const auto from = operation.reply.rfind('<', text);
        const auto size = operation.reply.find('>', text + 3) + 1 - from;
        const std::string field = operation.reply.substr(from, size);
        auto with = [&](const std::string& other) {
            return std::string(operation.reply).replace(from, size, other);
        };
        const std::string open = field.substr(0, field.find('>') + 1);
        const std::string close = field.substr(field.rfind('<'));

        Operation without = operation;
        without.truth = operation.without;
        const std::pair<const Operation*, std::string> rows[] = {
            {&without, with("")},
            {&without, with(field + field)},
            {&without, with(open + field + close)},
            {&operation, with("<Around>" + field + "</Around>")}};
        for (const auto& [of, body] : rows) {
            Cell(*of, repliesWith("sends " + body, Ending::truth, body)).check();
        }
    }
}

} // namespace
} // namespace connector::host::test
