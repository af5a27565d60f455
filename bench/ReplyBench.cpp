// Entries per second read from a folder listing, beside Poco's parser alone on the same text. The ratio must
// not depend on the length of the listing: reading is linear.
#include "Yardstick.h"

#include "tarn/fileaccess/FileRecordReaders.h"
#include "tarn/fileaccess/detail/PlainListing.h"
#include "tarn/protocol/ReplyXml.h"

#include <Poco/DOM/DOMParser.h>

#include <stdexcept>
#include <string>

namespace connector::host::bench {
namespace {

std::string listingOf(std::int64_t entries)
{
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?><Response><FolderSummary><Name>many</Name>"
                       "</FolderSummary><Files>";
    for (std::int64_t i = 0; i < entries; ++i) {
        text += "<FileSummary><Name>file " + std::to_string(i) +
                ".txt</Name><Created>1795258798853</Created><LastModified>1795258798853</LastModified>"
                "<Size>4096</Size><Writable>true</Writable><Watermark>2-1</Watermark></FileSummary>";
    }
    return text + "</Files><Folders></Folders></Response>";
}

void entriesOfAListing(benchmark::State& state)
{
    const std::string text = listingOf(state.range(0));
    Yardstick yardstick(state);
    for (auto _ : state) {
        yardstick.round(
            static_cast<double>(state.range(0)),
            [&] {
                auto listing = tarn::detail::plainListing(text);
                if (!listing) throw std::logic_error("the listing is not plain");
                benchmark::DoNotOptimize(listing);
            },
            [&] {
                Poco::XML::DOMParser parser;
                Poco::AutoPtr<Poco::XML::Document> document(parser.parseString(text));
                benchmark::DoNotOptimize(document);
            });
    }
    yardstick.report("entries", "read", "parsed alone");
}

/// A reply of one record, as most are.
void aReplyOfOneRecord(benchmark::State& state)
{
    const std::string text =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?><Response><Type>FILE</Type><Name>a.txt</Name>"
        "<Created>1795258798853</Created><LastModified>1795258798853</LastModified><Size>4096</Size>"
        "<Writable>true</Writable><Watermark>2-1</Watermark></Response>";
    constexpr int replies = 500; // in a turn
    Yardstick yardstick(state);
    for (auto _ : state) {
        yardstick.round(
            replies,
            [&] {
                for (int i = 0; i < replies; ++i) {
                    auto document = tarn::parseXml(text);
                    benchmark::DoNotOptimize(tarn::readFileAttributes(*document->documentElement()));
                }
            },
            [&] {
                for (int i = 0; i < replies; ++i) {
                    Poco::XML::DOMParser parser;
                    Poco::AutoPtr<Poco::XML::Document> document(parser.parseString(text));
                    benchmark::DoNotOptimize(document);
                }
            });
    }
    yardstick.report("replies", "read", "parsed alone");
}

BENCHMARK(aReplyOfOneRecord)->UseManualTime()->Unit(benchmark::kMillisecond);

BENCHMARK(entriesOfAListing)
    ->Arg(1'000)
    ->Arg(10'000)
    ->Arg(100'000)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

} // namespace
} // namespace connector::host::bench
