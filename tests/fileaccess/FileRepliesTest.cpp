// How replies of the service become records: ambiguous, missing and malformed elements, and many of them.
#include "FileResponses.h"

namespace connector::tarn {
namespace {

using namespace tarntest;
using Bench = WireBench<FileAccessClient, FileAccessClientServiceProvider>;

Outcome list(FileAccessClient& client)
{
    return watch(client.listFolder(std::make_unique<FolderList>()));
}

TEST(FileReplies, TakeWhatIsMissingOrAmbiguousForNone)
{
    auto write = [](FileAccessClient& c) { return watch(c.createFile(std::make_unique<FileCreate>())); };
    auto attributes = [](FileAccessClient& c) {
        return watch(c.readFileAttributes(std::make_unique<FileAttributesRead>()));
    };
    auto link = [](FileAccessClient& c) {
        return watch(c.getPublicAccessUrl(std::make_unique<PublicAccessUrlGet>()));
    };
    auto size = [](const std::string& text) {
        return "<L><Files><F><Size>" + text + "</Size></F></Files></L>";
    };
    auto label = [](const std::string& text) { return "<R><VersionLabel>" + text + "</VersionLabel></R>"; };
    expectReadings<Bench>(std::vector<Reading<FileAccessClient>>{
        {list, "<Listing/>", "|0|0|false|\n"},
        {list, "<L><FolderSummary><Name>a</Name><Deep><Name>b</Name></Deep></FolderSummary></L>",
         "|0|0|false|\n"},
        {list, size("big"), "stoull"},
        {list, size(""), "stoull"},
        {list, size("18446744073709551616"), "stoull"},
        {attributes, "<R><X><FileAttributes><Type>only a child counts</Type></FileAttributes></X></R>",
         "||0|0|0|false|"},
        {write, "<R/>", "|0"},
        {write, label("v"), "stoll"},
        {write, label("9223372036854775808"), "stoll"},
        {link, "<R><PublicAccessUrl>a</PublicAccessUrl><PublicAccessUrl>b</PublicAccessUrl></R>", ""},
    });
}

TEST(FileReplies, ReadAListingOf200000Files)
{
    std::string body = "<Response><Files>";
    for (int i = 0; i < 200'000; ++i) {
        body += "<File><Name>file " + std::to_string(i) +
                ".txt</Name><Created>1795258798853</Created><LastModified>1795258798853</LastModified>"
                "<Size>4096</Size><Writable>true</Writable><Watermark>2-1</Watermark></File>";
    }
    Bench bench;
    auto listed = bench.client->listFolder(std::make_unique<FolderList>());
    bench.transport->answer(200, body + "</Files></Response>");
    auto listing = listed.get();
    ASSERT_EQ(listing->files.size(), 200'000u);
    EXPECT_EQ(show(listing->files.back()), "file 199999.txt|1795258798853|1795258798853|4096|true|2-1");
}

} // namespace
} // namespace connector::tarn
