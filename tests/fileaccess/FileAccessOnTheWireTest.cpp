// What leaves the machine, byte for byte, what is read of each reply, and how each exchange can end: escaping,
// defaults, order and optional fields go wrong here.
#include "FileResponses.h"

namespace connector::tarn {
namespace {

using namespace tarntest;
using Bench = WireBench<FileAccessClient, FileAccessClientServiceProvider>;
using Case = WireCase<FileAccessClient>;

const std::string identity = "?locale=en_US&clientString=app%201.0&clientType=test";
const std::string own = identity + "&bucket=alice";
const std::string session = "x-qz-tarn-session-id: S1\n";

template <class Request>
std::unique_ptr<Request> upload(const std::u16string& path, std::string_view content, bool newVersion,
                                const std::u16string& bucket = {})
{
    auto request = located<Request>(path, bucket);
    request->content = connector::common::DataBuffer(content);
    request->contentType = "text/plain";
    request->createNewVersion = newVersion;
    return request;
}

template <class Request>
std::unique_ptr<Request> versioned(const std::u16string& path, const std::string& id, std::int64_t label)
{
    auto request = located<Request>(path);
    request->versionId = id;
    request->versionLabel = label;
    return request;
}

std::unique_ptr<FileHandleReadWriteCreate> readWrite(CreateMode mode, bool truncate)
{
    auto request = versioned<FileHandleReadWriteCreate>(u"/a?b", "V1", 4);
    request->createMode = mode;
    request->contentType = "text/plain";
    request->truncate = truncate;
    return request;
}

std::unique_ptr<FileHandleClose> closing(HandleOperation operation, bool newVersion)
{
    auto request = std::make_unique<FileHandleClose>();
    request->handleId = "H 1";
    request->handleOperation = operation;
    request->createNewVersion = newVersion;
    return request;
}

std::unique_ptr<Move> moving(const std::u16string& target, const std::u16string& targetBucket, bool overwrite)
{
    auto request = located<Move>(u"/from");
    request->targetPath = target;
    request->targetBucket = targetBucket;
    request->moveTargetOverwrite = overwrite;
    return request;
}

std::unique_ptr<FolderDelete> folderDelete(bool recursive)
{
    auto request = located<FolderDelete>(u"/d", u"bob");
    request->forceRecursive = recursive;
    return request;
}

const std::string version = "<R><VersionId>V9</VersionId><X><VersionLabel>-2</VersionLabel></X></R>";
const std::string handle =
    "<R><FileHandleId>H</FileHandleId><FileSize>7</FileSize><FileCreated>true</FileCreated></R>";

const std::string attributes = R"(<R><FileAttributes><Type>FILE</Type><Name>a</Name><Created>1</Created>
    <LastModified>2</LastModified><Size>3</Size><Writable>true</Writable>
    <Watermark>w</Watermark></FileAttributes></R>)";

const std::string listing = R"(<Listing>
    <FolderSummary><Name>docs</Name><Created>1</Created><LastModified>2</LastModified>
        <Writable>true</Writable><Watermark>w0</Watermark></FolderSummary>
    <Files>
        <File><Name>ä &amp; b</Name><Created>10</Created><LastModified>18446744073709551615</LastModified>
            <Size>12abc</Size><Writable>TRUE</Writable><Watermark>w1</Watermark></File>
        <Whatever/>
    </Files>
    <Folders> <F><Watermark>w2</Watermark><Writable>true</Writable><Name><![CDATA[<x>]]></Name></F> </Folders>
</Listing>)";

const std::string shared = R"(<R><Deep><SharedContent>
    <SharedByUserId>bob</SharedByUserId>
    <SharedFiles><F><Name>a</Name><Size>5</Size><Resource><Path>/d/a</Path><Bucket>bob's</Bucket></Resource></F>
    </SharedFiles>
    <SharedFolders><F><Name>d</Name><Resource><Path>/d</Path><Bucket>bob</Bucket></Resource></F><G/>
    </SharedFolders></SharedContent></Deep><SharedContent/></R>)";

const std::vector<Case> cases = {
    {"create a file in the user's own bucket",
     [](auto& c) { return watch(c.createFile(upload<FileCreate>(u"/a b.txt", "hello", true, u"bob"))); },
     "put http://host/service/v1/files/a%20b.txt" + own + "&createMode=CREATE&createNewVersion=true\n" +
         "Content-Type: text/plain\n" + session + "\nhello",
     version, "V9|-2"},
    {"update a file in the bucket given",
     [](auto& c) { return watch(c.updateFile(upload<FileUpdate>(u"/ä/%41", "", false, u"bob"))); },
     "put http://host/service/v1/files/%C3%A4/%2541" + identity +
         "&bucket=bob&createMode=UPDATE&createNewVersion=false\n" + "Content-Type: text/plain\n" + session +
         "\n",
     version, "V9|-2"},
    {"read the current version whatever the label",
     [](auto& c) { return watch(c.readFile(versioned<FileRead>(u"/a", "", 7))); },
     "get http://host/service/v1/files/a" + own + "\nfor content\n" + session, "<unclosed>",
     "application/octet-stream|<unclosed>"},
    {"read one version", [](auto& c) { return watch(c.readFile(versioned<FileRead>(u"/a", "a&c", -3))); },
     "get http://host/service/v1/files/a" + own + "&versionId=a%26c&versionLabel=-3\nfor content\n" + session,
     std::string("\0<xml\xff", 6), std::string("application/octet-stream|\0<xml\xff", 31)},
    {"path without a slash is joined as it stands",
     [](auto& c) { return watch(c.readFile(located<FileRead>(u"docs/a.txt"))); },
     "get http://host/service/v1/filesdocs/a.txt" + own + "\nfor content\n" + session, "",
     "application/octet-stream|"},
    {"every character that needs it",
     [](auto& c) { return watch(c.deleteFile(located<FileDelete>(u"/%<>{}|\\\"^`!*'()$,[]+&=;:@~"))); },
     "delete http://host/service/v1/files/%25%3C%3E%7B%7D%7C%5C%22%5E%60%21%2A%27%28%29%24%2C%5B%5D+&=;:@~" +
         own + "\n" + session},
    {"read attributes",
     [](auto& c) { return watch(c.readFileAttributes(located<FileAttributesRead>(u"/𝄞"))); },
     "get http://host/service/v1/filesystem/%F0%9D%84%9E" + own + "\n" + session, attributes,
     "FILE|a|1|2|3|true|w"},
    {"open to read",
     [](auto& c) {
         return watch(c.createReadOnlyFileHandle(versioned<FileHandleReadOnlyCreate>(u"/a?b#c", "V1", 4)));
     },
     "put http://host/service/v1/filehandle" + identity +
         "&path=%2Fa%3Fb%23c&bucket=alice&accessMode=readOnly&versionId=V1&versionLabel=4\n" + session,
     handle, "H|7"},
    {"open nothing to read",
     [](auto& c) {
         return watch(c.createReadOnlyFileHandle(versioned<FileHandleReadOnlyCreate>(u"", "", 4)));
     },
     "put http://host/service/v1/filehandle" + identity + "&bucket=alice&accessMode=readOnly\n" + session,
     "<R/>", "|0"},
    {"open a new file to write",
     [](auto& c) { return watch(c.createReadWriteFileHandle(readWrite(CreateMode::create, false))); },
     "put http://host/service/v1/filehandle" + identity +
         "&path=%2Fa%3Fb&bucket=alice&accessMode=readWrite&createMode=CREATE&truncate=false\n" +
         "Content-Type: text/plain\n" + session,
     handle, "H|7|true"},
    {"open to write either way",
     [](auto& c) { return watch(c.createReadWriteFileHandle(readWrite(CreateMode::createOrUpdate, true))); },
     "put http://host/service/v1/filehandle" + identity +
         "&path=%2Fa%3Fb&bucket=alice&accessMode=readWrite&createMode=CREATE_OR_UPDATE&truncate=true\n" +
         "Content-Type: text/plain\n" + session,
     "<R/>", "|0|false"},
    {"open to write in no known mode",
     [](auto& c) { return watch(c.createReadWriteFileHandle(readWrite(CreateMode{5}, true))); },
     "put http://host/service/v1/filehandle" + identity +
         "&path=%2Fa%3Fb&bucket=alice&accessMode=readWrite&truncate=true\n" + "Content-Type: text/plain\n" +
         session,
     "<R><FileCreated>TRUE</FileCreated></R>", "|0|false"},
    {"close and commit",
     [](auto& c) { return watch(c.closeFileHandle(closing(HandleOperation::commitChanges, true))); },
     "delete http://host/service/v1/filehandle/H%201" + identity +
         "&handleOperation=COMMIT_CHANGES&createNewVersion=true\n" + session},
    {"close and abort",
     [](auto& c) { return watch(c.closeFileHandle(closing(HandleOperation::abortChanges, false))); },
     "delete http://host/service/v1/filehandle/H%201" + identity +
         "&handleOperation=ABORT_CHANGES&createNewVersion=false\n" + session},
    {"close in no known way",
     [](auto& c) { return watch(c.closeFileHandle(closing(HandleOperation{2}, false))); },
     "delete http://host/service/v1/filehandle/H%201" + identity + "&createNewVersion=false\n" + session},
    {"create a folder", [](auto& c) { return watch(c.createFolder(located<FolderCreate>(u"/d/e"))); },
     "put http://host/service/v1/folders/d/e" + own + "\n" + session},
    {"list a folder", [](auto& c) { return watch(c.listFolder(located<FolderList>(u"/", u"bob ö"))); },
     "get http://host/service/v1/folders/" + identity + "&bucket=bob%20%C3%B6\n" + session, listing,
     "docs|1|2|true|w0\nä & b|10|18446744073709551615|12|false|w1\n|0|0|0|false|\n/<x>|0|0|true|w2\n"},
    {"delete an empty folder", [](auto& c) { return watch(c.deleteFolder(folderDelete(false))); },
     "delete http://host/service/v1/folders/d" + identity + "&bucket=bob&forceRecursive=false\n" + session},
    {"delete a folder with all", [](auto& c) { return watch(c.deleteFolder(folderDelete(true))); },
     "delete http://host/service/v1/folders/d" + identity + "&bucket=bob&forceRecursive=true\n" + session},
    {"move fills both buckets", [](auto& c) { return watch(c.move(moving(u"/to?", u"", true))); },
     "put http://host/service/v1/filesystem/from" + own +
         "&targetPath=%2Fto%3F&targetBucket=alice&moveTargetOverwrite=true\n" + session},
    {"move keeps the target bucket given", [](auto& c) { return watch(c.move(moving(u"", u"bob", false))); },
     "put http://host/service/v1/filesystem/from" + own +
         "&targetPath=&targetBucket=bob&moveTargetOverwrite=false\n" + session},
    {"list shared content",
     [](auto& c) { return watch(c.listSharedContent(std::make_unique<SharedContentList>())); },
     "get http://host/service/v1/sharedcontent" + identity + "\n" + session, shared,
     "bob:\na|0|0|5|false||/d/a|bob's\n/d|0|0|false||/d|bob\n/|0|0|false|||\n:\n"},
    {"get a public link",
     [](auto& c) { return watch(c.getPublicAccessUrl(located<PublicAccessUrlGet>(u"/d/a"))); },
     "get http://host/service/v1/public/urls/d/a" + own + "\n" + session,
     "<R><PublicAccessUrl>http://x/ü</PublicAccessUrl></R>", "http://x/ü"},
};

TEST(FileAccess, SendsEachRequestAndReadsItsReply)
{
    expectExchanges<Bench>(cases);
    expectRefusals(cases);
}

TEST(FileAccessProvider, SendsEmptyTargetsOfAMoveAndNoEmptyBucket)
{
    auto transport = std::make_shared<FakeTransport>();
    FileAccessClientServiceProvider provider(nullptr, "http://host");
    auto context = transport->getContext();
    auto reply = provider.handle(located<Move>(u"/from"), connector::Address("http"), std::move(context));
    EXPECT_EQ(transport->sent(),
              "put http://host/service/v1/filesystem/from?locale=en_US&targetPath=&targetBucket="
              "&moveTargetOverwrite=false\nx-qz-tarn-session-id: \n");
}

TEST(FileAccessProvider, ClosesNoHandleAtAllWithoutATrailingSlash)
{
    auto transport = std::make_shared<FakeTransport>();
    FileAccessClientServiceProvider provider(nullptr, "http://host");
    auto context = transport->getContext();
    auto reply =
        provider.handle(std::make_unique<FileHandleClose>(), connector::Address("http"), std::move(context));
    EXPECT_EQ(transport->sent(), "delete http://host/service/v1/filehandle?locale=en_US&handleOperation="
                                 "COMMIT_CHANGES&createNewVersion=false\nx-qz-tarn-session-id: \n");
}

TEST(FileAccessProvider, ThrowsWhatKeepsARequestFromBeingBuilt)
{
    auto transport = std::make_shared<FakeTransport>();
    FileAccessClientServiceProvider provider(nullptr, "http://host");
    auto handle = [&](const std::u16string& path) {
        return provider.handle(located<FileRead>(path), connector::Address("http"), transport->getContext());
    };
    EXPECT_THROW((void)handle(std::u16string(u"/lone ") + char16_t(0xD800)), std::invalid_argument);
    EXPECT_THROW((void)handle(std::u16string(u"/lone ") + char16_t(0xDC00) + u"x"), std::invalid_argument);
    EXPECT_EQ(transport->count(), 0u);
}

TEST(FileAccessClient, AnswersContentByHandleWithoutTouchingTheNetwork)
{
    Bench bench;
    EXPECT_EQ(watch(bench.client->readFileContent(std::make_unique<FileContentRead>()))(),
              "Not implemented yet");
    EXPECT_EQ(watch(bench.client->writeFileContent(std::make_unique<FileContentWrite>()))(),
              "Not implemented yet");
    EXPECT_EQ(bench.transport->count(), 0u);
}

TEST(FileAccessClient, RefusesAnEmptyHandleIdBeforeAnythingIsWritten)
{
    Bench bench;
    auto request = std::make_unique<FileHandleClose>();
    EXPECT_EQ(watch(bench.client->closeFileHandle(std::move(request)))(), "Handle ID cannot be empty");
    ASSERT_TRUE(request) << "the request stays with the caller";
    EXPECT_EQ(request->sessionId, "");
    request.reset();
    EXPECT_EQ(watch(bench.client->closeFileHandle(std::move(request)))(),
              "Null request, session, or context");
    EXPECT_EQ(bench.transport->count(), 0u);
}

TEST(FileAccessClient, OverwritesTheSessionDataThatACallerPutIn)
{
    Bench bench;
    auto request = located<FileRead>(u"/a");
    request->sessionId = "forged";
    request->clientString = "forged";
    request->clientType = "forged";
    auto reading = bench.client->readFile(std::move(request));
    EXPECT_EQ(bench.transport->sent(),
              "get http://host/service/v1/files/a" + own + "\nfor content\n" + session);
}

TEST(FileAccessClient, TellsWhatKindOfFailureItWasAndOfWhichRequest)
{
    const struct {
        std::uint16_t status;
        const char* reply;
        ErrorKind kind;
        const char* reason;
    } rows[] = {
        {404, "", ErrorKind::notFound, "notFound"},
        {403, "<Error><code>No.</code></Error>", ErrorKind::notAllowed, ""},
        {400, "<Error><code>No.</code><reason>unknownUser</reason></Error>", ErrorKind::notFound,
         "unknownUser"},
        {500, "<Error><code>No.</code><reason>commitUnknown</reason></Error>", ErrorKind::unknownOutcome,
         "commitUnknown"},
        {502, "<Error/>", ErrorKind::serviceFailure, ""},
        {204, "<Response/>", ErrorKind::unreadableReply, ""},
        {302, "", ErrorKind::unreadableReply, ""},
        {200, "<html>", ErrorKind::unreadableReply, ""},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.status);
        Bench bench;
        auto deletion = bench.client->deleteFile(located<FileDelete>(u"/a b"));
        bench.transport->answer(row.status, row.reply);
        try {
            (void)deletion.get();
            FAIL() << "no error";
        } catch (const TarnError& error) {
            EXPECT_EQ(error.kind(), row.kind);
            EXPECT_EQ(error.reason(), row.reason);
            EXPECT_EQ(error.status(), row.status);
            EXPECT_EQ(error.method() + " " + error.url(), "delete http://host/service/v1/files/a%20b");
        }
    }
}

} // namespace
} // namespace connector::tarn
