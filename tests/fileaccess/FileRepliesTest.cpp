// How replies of the service become records: ambiguous, missing and malformed elements, and many of them.
#include "FileResponses.h"
#include "tarn/fileaccess/detail/PlainListing.h"

#include <numeric>
#include <random>

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

using Tokens = std::vector<std::string>;

Tokens item(const std::string& name, const std::string& size)
{
    Tokens tokens{"<I>", "<Name>", name, "</Name>", "<LastModified>", "7", "</LastModified>"};
    if (!size.empty()) tokens.insert(tokens.end(), {"<Size>", size, "</Size>"});
    tokens.insert(tokens.end(), {"<Writable>", "true", "</Writable>", "</I>"});
    return tokens;
}

/// A listing of the kind that needs no document, as the service sends it, a piece at a time.
Tokens plainTokens(int files)
{
    Tokens tokens{"<R>", "<FolderSummary>", "<Name>", "top", "</Name>", "</FolderSummary>", "<Files>"};
    const auto append = [&](const Tokens& more) { tokens.insert(tokens.end(), more.begin(), more.end()); };
    for (int i = 0; i < files; ++i)
        append(item("a &amp; \xC3\xA4 " + std::to_string(i), std::to_string(i)));
    append({"</Files>", "\n ", "<Folders>"});
    append(item("below", ""));
    append({"</Folders>", "</R>"});
    return tokens;
}

/// Leaves out, exchanges or puts in.
void disturb(Tokens& tokens, std::mt19937& random)
{
    static const Tokens strange{"<Name>n</Name>",
                                "<Watermark>w</Watermark>",
                                "<Size>12abc</Size>",
                                "<Size>-</Size>",
                                "<Deep><Name>d</Name></Deep>",
                                "<Files><I><Name>f</Name></I></Files>",
                                "<Folders/>",
                                "<FolderSummary/>",
                                "<I/>",
                                "<J/>",
                                "<x:y/>",
                                "<x:y><Name>c</Name></x:y>",
                                "<I a=''/>",
                                "&lt;",
                                "&no;",
                                "<!--c-->",
                                "<?p i?>",
                                "<![CDATA[c]]>",
                                "<Name>",
                                "</Name>",
                                std::string(20'000, 'n'),
                                "<" + std::string(40'000, 'n') + "/>"};
    const auto any = [&](std::size_t size) { return random() % size; };
    const auto place = tokens.begin() + static_cast<std::ptrdiff_t>(any(tokens.size()));
    switch (any(6)) {
    case 0:
        tokens.erase(place);
        break;
    case 1:
        std::swap(*place, tokens[any(tokens.size())]);
        break;
    default:
        tokens.insert(place, strange[any(strange.size())]);
    }
}

TEST(FileReplies, ReadAListingWithoutADocumentAsWithOne)
{
    const std::string comment = "<!---->"; // with one, it takes a document
    const auto withDocument = [&](const std::string& text) {
        Bench bench;
        auto outcome = list(*bench.client);
        bench.transport->answer(200, text + comment);
        return outcome();
    };
    std::mt19937 random(20261123);
    int plain = 0;
    for (int round = 0; round < 6000; ++round) {
        auto tokens = plainTokens(round % 100 == 0 ? 300 : round % 3); // 300 are read in several pieces
        for (unsigned changes = random() % 4; changes > 0; --changes)
            disturb(tokens, random);
        const auto text = std::accumulate(tokens.begin(), tokens.end(), std::string());
        const auto listing = detail::plainListing(text);
        if (!listing) continue;
        ++plain;
        ASSERT_EQ(show(*listing), withDocument(text)) << text.substr(0, 2000);
    }
    EXPECT_GT(plain, 1500); // those that were left as they are, at least
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
