// Transfers byte for byte: the requests, and what replies of every kind come to: the part that was asked for, all of
// it, verified; or an error that subscriber and future both hear of.
#include "support/ManualPublisher.h"
#include "support/WireTest.h"
#include "tarn/foundation/platform/HttpStreamedResponse.h"
#include "tarn/transfer/DigestMismatch.h"
#include "tarn/transfer/FileTransferClient.h"
#include "tarn/transfer/FileTransferClientServiceProvider.h"

#include <functional>

namespace connector::tarn {

std::string show(const FileUploadResponse& response)
{
    return tarntest::fields(response.versionId, response.versionLabel, response.bytes, response.verified);
}

std::string show(const FileDownloadResponse& response)
{
    return tarntest::fields(response.totalSize.value_or(999), response.offset, response.isPart,
                            response.versionId, response.bytes, response.verified);
}

namespace {

using namespace tarntest;
using common::DataBuffer;
using Bench = WireBench<FileTransferClient, FileTransferClientServiceProvider>;
using Case = WireCase<FileTransferClient>;
using Headers = http::HttpStreamedResponse::Headers;

const std::string url = "http://host/service/v1/files/a%20b";
const std::string identity = "?locale=en_US&clientString=app%201.0&clientType=test";
const std::string session = "x-qz-tarn-session-id: S1\n";
/// "sha256sum", "base64": of "0123456789".
const std::string tenDigits = "sha-256=:hNiYd/DUBB77a/kaFvAkjy/Vc+avBcGflr7bn4gveII=:";
const std::string tenDigitsInHex = "84d89877f0d4041efb6bf91a16f0248f2fd573e6af05c19f96bedb9f882f7882";

/// Writes down what it hears, and asks for everything.
struct Recorder : reactive_streams::SubscriberAPI<DataBuffer> {
    void onSubscribe(std::weak_ptr<reactive_streams::Subscription> offered) override
    {
        heard += "<";
        subscription = offered;
        if (asks) offered.lock()->request(reactive_streams::unboundedDemand);
    }

    void onNext(DataBuffer&& item) override
    {
        if (complaint) throw std::runtime_error(complaint);
        heard += item.bytes();
    }

    void onComplete() override { heard += ">"; }

    void onError(std::exception_ptr) override
    {
        heard += "!";
        if (complaint) throw std::runtime_error(complaint);
    }

    void cancel() override {}

    Future<bool> completion() override { return makeReadyFuture(true); }

    std::string heard;
    bool asks = true;
    const char* complaint = nullptr;
    std::weak_ptr<reactive_streams::Subscription> subscription;
};

auto upload(CreateMode mode, std::optional<std::uint64_t> size, const std::string& content = "0123456789")
{
    return [=](FileTransferClient& client) {
        auto request = located<FileUpload>(u"/a b", u"bob");
        request->createMode = mode;
        request->content = bodyOf(content);
        request->size = size;
        return watch(client.uploadFile(std::move(request)));
    };
}

auto uploadOf(const std::string& sha256)
{
    return [=](FileTransferClient& client) {
        auto request = located<FileUpload>(u"/a b");
        request->content = bodyOf("0123456789");
        request->sha256 = sha256;
        return watch(client.uploadFile(std::move(request)));
    };
}

struct Wanted {
    std::uint64_t offset = 0;
    std::optional<std::uint64_t> length = std::nullopt;
    std::string ifVersion = "";
    std::optional<std::string> before = std::nullopt;
};

auto download(const Wanted& wanted, const std::shared_ptr<Recorder>& recorder)
{
    return [=](FileTransferClient& client) {
        auto request = located<FileDownload>(u"/a b");
        request->offset = wanted.offset;
        request->length = wanted.length;
        request->ifVersion = wanted.ifVersion;
        if (wanted.before) {
            request->hash = std::make_shared<Sha256>();
            request->hash->add(*wanted.before);
        }
        request->content = recorder;
        request->onHead = [recorder](const FileDownloadHead& head) {
            recorder->heard += std::to_string(head.offset);
        };
        return watch(client.downloadFile(std::move(request)));
    };
}

const std::vector<Case> cases = {
    {"upload", upload(CreateMode::update, 10),
     "put " + url + identity + "&bucket=bob&createMode=UPDATE&createNewVersion=false\n" +
         "Content-Length: 10\nContent-Type: application/octet-stream\n" + session + "\n0123456789",
     "<R><VersionId>A</VersionId><VersionLabel>2</VersionLabel></R>", "A|2|10|false"},
    {"upload of a known digest", uploadOf(tenDigitsInHex),
     "put " + url + identity +
         "&bucket=alice&createMode=CREATE&createNewVersion=false\nContent-Digest: " + tenDigits +
         "\nContent-Type: application/octet-stream\nTransfer-Encoding: chunked\n" + session + "\n0123456789",
     "<R/>", "|0|10|false"},
    {"create, of unknown size", upload(CreateMode::create, std::nullopt),
     "put " + url + identity + "&bucket=alice&createMode=CREATE&createNewVersion=false\n" +
         "Content-Type: application/octet-stream\nTransfer-Encoding: chunked\n" + session + "\n0123456789",
     "<R/>", "|0|10|false"},
    {"download", download({}, std::make_shared<Recorder>()),
     "get " + url + identity + "&bucket=alice\nfor content\n" + session, "0123456789",
     "10|0|false||10|false"},
    {"rest, as a part without end", download({5, ~std::uint64_t{0}}, std::make_shared<Recorder>()),
     "get " + url + identity + "&bucket=alice\nfor content\nRange: bytes=5-\n" + session, "0123456789",
     "10|5|false||5|false"},
    {"continuation", download({5, 3, "V7"}, std::make_shared<Recorder>()),
     "get " + url + identity + "&bucket=alice\nfor content\nIf-Range: \"V7\"\nRange: bytes=5-7\n" + session,
     "new", "3|0|false||3|false"},
};

TEST(FileTransferMessages, LeaveAsExactlyTheseRequests)
{
    expectExchanges<Bench>(cases);
    expectRefusals(cases);
}

struct DownloadCase {
    const char* name;
    Wanted wanted;
    std::uint16_t status;
    Headers headers;
    std::string body;
    std::string
        heard; ///< the offset by the head, "<" the subscription, the bytes, ">" the end or "!" an error
    std::string outcome;
};

const std::string otherPart = "The service sent another part of the file than was asked for.";
const std::string otherVersion = "The service sent a part of another version than was asked for.";
const std::string endsBefore = "The file ends before the part that was asked for.";
const std::string goesOn = "The content goes on after 4 of 4 bytes.";
const std::string damaged = "What has arrived is not what the service says it has: its SHA-256 is ";
const std::string all = "0123456789";
const Headers digest{{"content-digest", tenDigits}};
const Headers amongOthers{{"repr-digest", "x-sha-256=:y:, " + tenDigits}};
const Headers noDigest{{"content-digest", "sha-256=:short:"}};
const Headers described{{"content-length", "10"}, {"etag", "\"V\""}, {"content-digest", tenDigits}};

Headers length(const char* bytes)
{
    return {{"content-length", bytes}};
}

Headers part(const std::string& range)
{
    return {{"content-range", "bytes " + range}, {"repr-digest", tenDigits}};
}

const Headers damagedPart{{"content-range", "bytes 3-6/10"}, {"content-digest", tenDigits}};
const Headers ofRest{{"content-range", "bytes 4-9/10"}, {"content-digest", tenDigits}};
const Headers ofVersionW{{"content-range", "bytes 4-9/10"}, {"etag", "\"W\""}};
const Headers longer{{"content-range", "bytes 3-6/10"}, {"content-length", "5"}};
const Headers twoDigests{{"content-digest", "x=:y:"}, {"content-digest", tenDigits}};

const std::vector<DownloadCase> downloads = {
    {"whole", {}, 200, described, all, "0<0123456789>", "10|0|false|V|10|true"},
    {"digest of the file", {}, 200, amongOthers, all, "0<0123456789>", "10|0|false||10|true"},
    {"digest that is none", {}, 200, noDigest, "ab", "0<ab>", "2|0|false||2|false"},
    {"damaged", {}, 200, digest, "0123456780", "0<0123456780!", damaged},
    {"too short", {}, 200, length("10"), "01234", "0<01234!", "The content ended after 5 of 10 bytes."},
    {"part", {3, 4}, 206, part("3-6/10"), "3456", "3<3456>", "10|3|true||4|false"},
    {"part that the end cuts short", {8, 4}, 206, part("8-9/10"), "89", "8<89>", "10|8|true||2|false"},
    {"too short a part", {3, 4}, 206, part("3-6/10"), "34", "3<34!", "The content ended after 2 of 4 bytes."},
    {"less than the part", {3, 4}, 206, part("3-5/10"), "345", "", otherPart},
    {"less than the rest", {4}, 206, part("4-6/10"), "456", "", otherPart},
    {"more than there is", {4}, 206, part("4-10/10"), "4567890", "", otherPart},
    {"rest of a size not known yet", {8}, 206, part("8-9/*"), "89", "8<89>", "999|8|true||2|false"},
    {"damaged part", {3, 4}, 206, damagedPart, "3456", "3<3456!", damaged},
    {"part of another version", {4, {}, "V"}, 206, ofVersionW, "456789", "", otherVersion},
    {"one of two digests", {}, 200, twoDigests, "0123456780", "0<0123456780!", damaged},
    {"another part", {3, 4}, 206, part("2-6/10"), "23456", "", otherPart},
    {"more than the part", {3, 4}, 206, part("3-7/10"), "34567", "", otherPart},
    {"longer than its range, as its length says", {3, 4}, 206, longer, "34567", "", otherPart},
    {"longer than its range, of unknown length", {3, 4}, 206, part("3-6/10"), "34567", "3<3456!", goesOn},
    {"part that is not described", {3, 4}, 206, {}, "3456", "", otherPart},
    {"part, not asked for", {}, 206, part("0-1/10"), "<R/>", "", "Unknown error."},
    {"rest", {4, {}, "V", "0123"}, 206, part("4-9/10"), "456789", "4<456789>", "10|4|true||6|true"},
    {"rest of another beginning", {4, {}, "V", "012_"}, 206, part("4-9/10"), "456789", "4<456789!", damaged},
    {"rest, of a length",
     {4, 9, "", "0123"},
     206,
     part("4-9/10"),
     "456789",
     "4<456789>",
     "10|4|true||6|true"},
    {"rest of a length and another beginning",
     {4, 6, "", "012_"},
     206,
     part("4-9/10"),
     "456789",
     "4<456789!",
     damaged},
    {"damaged rest, of which alone is told", {4, 6, "", "0123"}, 206, ofRest, "456780", "4<456780!", damaged},
    {"middle, of another beginning",
     {4, 2, "", "012_"},
     206,
     part("4-5/10"),
     "45",
     "4<45>",
     "10|4|true||2|false"},
    {"changed file", {4, {}, "V", "abcd"}, 200, digest, all, "0<0123456789>", "10|0|false||10|true"},
    {"empty rest", {10, {}, "V", all}, 416, part("*/10"), "<R/>", "10<>", "10|10|true||0|true"},
    {"rest behind the end", {11}, 416, part("*/10"), "<R><code>Gone.</code></R>", "", "Gone."},
    {"service without parts", {3, 4}, 200, digest, all, "3<3456>", "999|3|false||4|false"},
    {"rest, without parts", {3}, 200, digest, all, "3<3456789>", "10|3|false||7|true"},
    {"beginning, without parts", {0, 4, "", ""}, 200, described, all, "0<0123>", "10|0|false|V|4|false"},
    {"rest of another beginning, without parts", {4, {}, "", "012_"}, 200, digest, all, "4<456789!", damaged},
    {"middle of another beginning, without parts",
     {4, 2, "", "012_"},
     200,
     described,
     all,
     "4<45>",
     "10|4|false|V|2|false"},
    {"behind the end, without parts", {4}, 200, length("2"), "01", "", endsBefore},
    {"behind the end, of unknown length", {4}, 200, {}, "01", "4<!", endsBefore},
    {"not there", {3}, 404, {}, "", "", "File not found."},
};

TEST(Downloads, TellSubscriberAndFutureTheSame)
{
    for (const auto& row : downloads) {
        SCOPED_TRACE(row.name);
        Bench bench;
        const auto recorder = std::make_shared<Recorder>();
        recorder->asks = row.status != 416; // what is empty ends without being asked for
        const auto outcome = download(row.wanted, recorder)(*bench.client);
        bench.transport->answerWith(
            std::make_unique<http::HttpStreamedResponse>(row.status, bodyOf(row.body), row.headers));
        EXPECT_EQ(recorder->heard, row.heard);
        EXPECT_EQ(outcome().substr(0, row.outcome.size()), row.outcome);
    }
}

TEST(Downloads, GoOnFromTheHashOfWhatHasCome)
{
    const auto hash = std::make_shared<Sha256>();
    const auto fetch = [&hash](std::uint64_t offset, std::uint16_t status, const Headers& headers,
                               const std::string& body) {
        Bench bench;
        auto request = located<FileDownload>(u"/a b");
        request->offset = offset;
        request->hash = hash;
        request->content = std::make_shared<Recorder>();
        auto outcome = watch(bench.client->downloadFile(std::move(request)));
        bench.transport->answerWith(
            std::make_unique<http::HttpStreamedResponse>(status, bodyOf(body), headers));
        return outcome();
    };
    EXPECT_EQ(fetch(0, 200, described, "0123"), "The content ended after 4 of 10 bytes.");
    EXPECT_EQ(fetch(4, 206, part("4-9/10"), "45"), "The content ended after 2 of 6 bytes.");
    EXPECT_EQ(fetch(6, 200, length("9"), "012345678"), "9|6|false||3|false"); // without parts
    EXPECT_EQ(fetch(9, 206, part("9-9/10"), "9"), "10|9|true||1|true");

    Bench bench;
    const auto ofOthers = download({5, {}, "", "0123"}, std::make_shared<Recorder>());
    EXPECT_THROW(ofOthers(*bench.client), std::invalid_argument);
}

/// One tag must not become several, nor another header.
TEST(FileTransferMessages, LeaveWithNoTagThatIsNone)
{
    for (const char* tag : {"x\", \"y", "x\ny", "x\x7f"}) {
        Bench bench;
        auto request = located<FileUpload>(u"/a b");
        request->content = bodyOf("0123456789");
        request->ifVersion = tag;
        EXPECT_THROW((void)bench.client->uploadFile(std::move(request)), std::invalid_argument);
        EXPECT_THROW(download({5, 3, tag}, std::make_shared<Recorder>())(*bench.client),
                     std::invalid_argument);
    }
}

TEST(Downloads, TakeAPartFromAHostThatHandsNoHeadersOver)
{
    Bench bench;
    const auto recorder = std::make_shared<Recorder>();
    const auto outcome = download({3, 4}, recorder)(*bench.client);
    bench.transport->answer(206, "3456");
    EXPECT_EQ(recorder->heard, "3<3456>");
    EXPECT_EQ(outcome(), "999|3|true||4|false");
}

TEST(Downloads, TellWhichExchangeTheServiceRefused)
{
    Bench bench;
    auto request = located<FileDownload>(u"/a b");
    request->content = std::make_shared<Recorder>();
    auto refused = bench.client->downloadFile(std::move(request));
    bench.transport->answer(404, "");
    try {
        refused.get();
        FAIL() << "no error";
    } catch (const TarnError& error) {
        EXPECT_EQ(error.method() + " " + error.url(), "get " + url);
    }
}

TEST(Downloads, EndWithWhatTheSubscriberThrowsAndWithItsCancel)
{
    constexpr auto full = "The disk is full.";
    const auto cut = std::make_exception_ptr(std::runtime_error("cut"));

    const struct {
        const char* complaint;
        std::function<void(Recorder&, ManualPublisher&)> end;
        bool cancels;
        const char* heard;
        const char* outcome;
    } rows[] = {
        {full, [](auto&, auto& body) { body.subscriber->onNext(DataBuffer("a")); }, true, "0<", full},
        {full, [&](auto&, auto& body) { body.subscriber->onError(cut); }, false, "0<!", full},
        {nullptr, [](auto& taker, auto&) { taker.subscription.lock()->cancel(); }, true, "0<",
         "Content stream cancelled."},
    };

    for (const auto& row : rows) {
        Bench bench;
        const auto recorder = std::make_shared<Recorder>();
        recorder->complaint = row.complaint;
        const auto outcome = download({}, recorder)(*bench.client);
        const auto body = std::make_shared<ManualPublisher>();
        bench.transport->answerWith(std::make_unique<http::HttpStreamedResponse>(200, body, Headers{}));
        row.end(*recorder, *body);
        body->subscriber->onNext(DataBuffer("b"));
        body->subscriber->onComplete();
        EXPECT_EQ(body->link->cancelled, row.cancels);
        EXPECT_EQ(recorder->heard, row.heard);
        EXPECT_EQ(outcome(), row.outcome);
    }
}

TEST(Uploads, AreComparedWithWhatTheServiceStored)
{
    for (const auto& [content, outcome] :
         {std::pair{"0123456789", "A|0|10|true"}, {"012345678_", "The service"}}) {
        Bench bench;
        const auto result = upload(CreateMode::update, 10, content)(*bench.client);
        bench.transport->answerWith(std::make_unique<http::HttpStreamedResponse>(
            200, bodyOf("<R><VersionId>A</VersionId></R>"), Headers{{"content-digest", tenDigits}}));
        EXPECT_EQ(result().substr(0, std::string(outcome).size()), outcome);
    }
}

TEST(Uploads, CountNothingAfterTheEnd)
{
    struct Talkative : ManualPublisher {
        void subscribe(std::shared_ptr<Subscriber> added) override
        {
            ManualPublisher::subscribe(added);
            added->onNext(DataBuffer("all"));
            added->onComplete();
            added->onNext(DataBuffer("late"));
        }
    };

    Bench bench;
    auto request = located<FileUpload>(u"/a b");
    request->content = std::make_shared<Talkative>();
    const auto outcome = watch(bench.client->uploadFile(std::move(request)));
    bench.transport->answer(200, "<R/>");
    EXPECT_EQ(outcome(), "|0|3|false");
}

TEST(Sha256, GoesOnFromACopy)
{
    Sha256 hash;
    hash.add("01234");
    Sha256 copy = hash;
    hash.add("x");
    copy.add("56789");
    EXPECT_EQ(copy.hex(), tenDigitsInHex);
    EXPECT_NE(hash.hex(), copy.hex());
}

} // namespace
} // namespace connector::tarn
