// How replies of the service become records: ambiguous, missing and malformed elements, and replies far
// larger or deeper than any honest one.
#include "support/WireTest.h"
#include "tarn/fileaccess/FileAccessClient.h"
#include "tarn/fileaccess/FileAccessClientServiceProvider.h"

namespace {

using namespace connector::tarn;
using namespace tarntest;
using Bench = WireBench<FileAccessClient, FileAccessClientServiceProvider>;

template <class Request, class Response>
std::unique_ptr<Response>
reply(connector::Future<std::unique_ptr<Response>> (FileAccessClient::*operation)(std::unique_ptr<Request>&&),
      const std::string& body)
{
    Bench bench;
    auto future = ((*bench.client).*operation)(std::make_unique<Request>());
    bench.transport->answer(200, body);
    return future.get();
}

TEST(FileReplies, ReadAFolderListing)
{
    auto listing = reply(&FileAccessClient::listFolder, R"(<Listing>
        <FolderSummary><Name>docs</Name><Created>1</Created><LastModified>2</LastModified>
            <Writable>true</Writable><Watermark>w0</Watermark></FolderSummary>
        <Files>
            <File><Name>ä &amp; b</Name><Created>10</Created><LastModified>18446744073709551615</LastModified>
                <Size>12abc</Size><Writable>TRUE</Writable><Watermark>w1</Watermark></File>
            <Whatever/>
        </Files>
        <Folders> <F><Watermark>w2</Watermark><Writable>true</Writable><Name><![CDATA[<x>]]></Name></F> </Folders>
    </Listing>)");
    EXPECT_EQ(listing->folder.name, u"docs");
    EXPECT_EQ(listing->folder.created, 1u);
    EXPECT_EQ(listing->folder.lastModified, 2u);
    EXPECT_TRUE(listing->folder.writable);
    EXPECT_EQ(listing->folder.watermark, "w0");
    ASSERT_EQ(listing->files.size(), 2u) << "white space between items is no item";
    EXPECT_EQ(listing->files[0].name, u"ä & b");
    EXPECT_EQ(listing->files[0].created, 10u);
    EXPECT_EQ(listing->files[0].lastModified, 18446744073709551615u);
    EXPECT_EQ(listing->files[0].size, 12u);
    EXPECT_FALSE(listing->files[0].writable) << "only \"true\" is true";
    EXPECT_EQ(listing->files[0].watermark, "w1");
    EXPECT_EQ(listing->files[1].name, u"");
    EXPECT_EQ(listing->files[1].size, 0u);
    ASSERT_EQ(listing->folders.size(), 1u);
    EXPECT_EQ(listing->folders[0].name, u"<x>");
    EXPECT_TRUE(listing->folders[0].writable);
}

TEST(FileReplies, ReadAListingWithoutContainers)
{
    auto listing = reply(&FileAccessClient::listFolder, "<Listing/>");
    EXPECT_EQ(listing->folder.name, u"");
    EXPECT_TRUE(listing->files.empty());
    EXPECT_TRUE(listing->folders.empty());
}

TEST(FileReplies, TakeANameThatOccursTwiceForNone)
{
    auto listing = reply(&FileAccessClient::listFolder,
                         "<L><FolderSummary><Name>a</Name><Deep><Name>b</Name></Deep></FolderSummary></L>");
    EXPECT_EQ(listing->folder.name, u"");
}

TEST(FileReplies, ReadAttributesOfTheDirectChildOnly)
{
    const std::string record = "<FileAttributes><Type>FILE</Type><Name>a</Name><Created>1</Created>"
                               "<LastModified>2</LastModified><Size>3</Size><Writable>true</Writable>"
                               "<Watermark>w</Watermark></FileAttributes>";
    auto found = reply(&FileAccessClient::readFileAttributes, "<R>" + record + "</R>")->attributes;
    EXPECT_EQ(found.type, "FILE");
    EXPECT_EQ(found.name, u"a");
    EXPECT_EQ(found.created, 1u);
    EXPECT_EQ(found.lastModified, 2u);
    EXPECT_EQ(found.size, 3u);
    EXPECT_TRUE(found.writable);
    EXPECT_EQ(found.watermark, "w");
    EXPECT_EQ(reply(&FileAccessClient::readFileAttributes, "<R><X>" + record + "</X></R>")->attributes.type,
              "");
}

TEST(FileReplies, ReadSharedContentAtAnyDepth)
{
    auto shared = reply(&FileAccessClient::listSharedContent, R"(<R><Deep><SharedContent>
        <SharedByUserId>bob</SharedByUserId>
        <SharedFiles><F><Name>a</Name><Size>5</Size><Resource><Path>/d/a</Path><Bucket>bob</Bucket></Resource></F>
        </SharedFiles>
        <SharedFolders><F><Name>d</Name><Resource><Path>/d</Path><Bucket>bob</Bucket></Resource></F><G/>
        </SharedFolders></SharedContent></Deep><SharedContent/></R>)")
                      ->sharedContent;
    ASSERT_EQ(shared.size(), 2u);
    EXPECT_EQ(shared[0].sharedByUserId, u"bob");
    ASSERT_EQ(shared[0].sharedFiles.size(), 1u);
    EXPECT_EQ(shared[0].sharedFiles[0].size, 5u);
    EXPECT_EQ(shared[0].sharedFiles[0].path, u"/d/a");
    EXPECT_EQ(shared[0].sharedFiles[0].bucket, u"bob");
    ASSERT_EQ(shared[0].sharedFolders.size(), 2u);
    EXPECT_EQ(shared[0].sharedFolders[0].path, u"/d");
    EXPECT_EQ(shared[0].sharedFolders[1].path, u"") << "a missing Resource is empty, not a crash";
    EXPECT_TRUE(shared[1].sharedFiles.empty());
}

TEST(FileReplies, ReadSingleValues)
{
    auto created = reply(&FileAccessClient::createFile,
                         "<R><VersionId>V9</VersionId><X><VersionLabel>-2</VersionLabel></X></R>");
    EXPECT_EQ(created->versionId, "V9");
    EXPECT_EQ(created->versionLabel, -2);
    EXPECT_EQ(reply(&FileAccessClient::updateFile, "<R/>")->versionLabel, 0);
    auto readOnly = reply(&FileAccessClient::createReadOnlyFileHandle,
                          "<R><FileHandleId>H</FileHandleId><FileSize>7</FileSize></R>");
    EXPECT_EQ(readOnly->fileHandleId, "H");
    EXPECT_EQ(readOnly->fileSize, 7u);
    auto readWrite =
        reply(&FileAccessClient::createReadWriteFileHandle,
              "<R><FileHandleId>H</FileHandleId><FileSize>7</FileSize><FileCreated>true</FileCreated></R>");
    EXPECT_EQ(readWrite->fileSize, 7u);
    EXPECT_TRUE(readWrite->fileCreated);
    EXPECT_EQ(
        reply(&FileAccessClient::getPublicAccessUrl, "<R><PublicAccessUrl>http://x/ü</PublicAccessUrl></R>")
            ->url,
        u"http://x/ü");
    EXPECT_EQ(reply(&FileAccessClient::getPublicAccessUrl,
                    "<R><PublicAccessUrl>a</PublicAccessUrl><PublicAccessUrl>b</PublicAccessUrl></R>")
                  ->url,
              u"");
}

TEST(FileReplies, HandContentOnUntouched)
{
    const std::string bytes("\0<xml\xff", 6);
    auto content = reply(&FileAccessClient::readFile, bytes);
    EXPECT_EQ(content->content.bytes(), bytes);
    EXPECT_EQ(content->contentType, "application/octet-stream");
    EXPECT_EQ(reply(&FileAccessClient::readFile, "")->content.size, 0u);
}

TEST(FileReplies, FailOnNumbersThatAreNone)
{
    auto listed = [](const std::string& size) {
        reply(&FileAccessClient::listFolder, "<L><Files><F><Size>" + size + "</Size></F></Files></L>");
    };
    EXPECT_THROW(listed("big"), std::invalid_argument);
    EXPECT_THROW(listed(""), std::invalid_argument);
    EXPECT_THROW(listed("18446744073709551616"), std::out_of_range);
    EXPECT_THROW(reply(&FileAccessClient::createFile, "<R><VersionLabel>v</VersionLabel></R>"),
                 std::invalid_argument);
    EXPECT_THROW(
        reply(&FileAccessClient::createFile, "<R><VersionLabel>9223372036854775808</VersionLabel></R>"),
        std::out_of_range);
}

TEST(FileReplies, ReadAListingOfManyEntries)
{
    constexpr int count = 40'000;
    std::string body = "<L><Files>";
    for (int i = 0; i < count; ++i)
        body += "<F><Name>f" + std::to_string(i) + "</Name><Size>1</Size></F>\n";
    auto listing = reply(&FileAccessClient::listFolder, body + "</Files></L>");
    ASSERT_EQ(listing->files.size(), static_cast<std::size_t>(count));
    EXPECT_EQ(listing->files.back().name, u"f39999");
}

} // namespace
