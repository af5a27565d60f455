// Contents on their way: what waits for whom, and who hears of an end.
#include "Bounded.h"
#include "HttpClientUnderTest.h"
#include "support/ScriptedHttpServer.h"
#include "tarn/foundation/platform/HttpStreamedRequest.h"
#include "tarnhost/FileSink.h"
#include "tarnhost/FileSource.h"
#include "tarnhost/TarnHost.h"
#include "tarntesting/TestService.h"

#include <gmock/gmock.h>

#include <fcntl.h>
#include <sys/stat.h>

#include <atomic>
#include <cstdio>
#include <future>
#include <mutex>
#include <random>
#include <thread>

namespace connector::host::test {
namespace {

using namespace std::chrono_literals;
using namespace tarn;
using common::DataBuffer;
using testing::HasSubstr;

constexpr std::uint64_t mebibyte = 1 << 20;

struct TemporaryFile {
    std::FILE* file = std::tmpfile();

    ~TemporaryFile() { std::fclose(file); }

    int descriptor() const { return fileno(file); }

    std::string content() const
    {
        std::string bytes(static_cast<std::size_t>(lseek(descriptor(), 0, SEEK_END)), '\0');
        EXPECT_EQ(pread(descriptor(), bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
        return bytes;
    }
};

/// Asks when the test says so, and keeps count.
struct Consumer : reactive_streams::SubscriberAPI<DataBuffer> {
    void onSubscribe(std::weak_ptr<reactive_streams::Subscription> offered) override
    {
        {
            const std::lock_guard lock(guard);
            subscription = offered;
        }
        started.set_value();
    }

    void onNext(DataBuffer&& item) override
    {
        EXPECT_FALSE(busy.exchange(true)) << "two items at a time";
        bytes += item.size;
        if (takeItem) takeItem(item.bytes());
        if (afterItem) afterItem(*this);
        busy = false;
    }

    void onComplete() override { ++ends; }

    void onError(std::exception_ptr) override { ++errors; }

    void cancel() override { held()->cancel(); }

    std::shared_ptr<reactive_streams::Subscription> held() const
    {
        const std::lock_guard lock(guard);
        return subscription.lock();
    }

    void request(std::uint64_t n)
    {
        if (const auto asked = held()) asked->request(n);
    }

    Future<bool> completion() override { return makeReadyFuture(true); }

    mutable std::mutex guard; ///< the test asks while a delivery thread subscribes
    std::weak_ptr<reactive_streams::Subscription> subscription;
    std::promise<void> started;
    std::function<void(std::string_view)> takeItem;
    std::function<void(Consumer&)> afterItem;
    std::atomic<std::uint64_t> bytes{0};
    std::atomic<int> ends{0};
    std::atomic<int> errors{0};
    std::atomic<bool> busy{false};
};

std::string headOf(std::uint64_t length)
{
    return "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n";
}

/// @return false when the peer has gone before it had all of it
bool sendContent(ScriptedHttpServer::Connection& connection, std::uint64_t bytes)
{
    const std::string piece(64 * 1024, 'x');
    bool there = true;
    for (std::uint64_t sent = 0; there && sent < bytes; sent += piece.size())
        there = connection.send(std::string_view(piece).substr(0, bytes - sent));
    return there;
}

auto downloadTo(TarnHost& host, std::shared_ptr<Consumer> consumer, const char16_t* path = u"/a",
                std::stop_token stop = {})
{
    auto request = std::make_unique<FileDownload>();
    request->path = path;
    request->content = std::move(consumer);
    request->stop = std::move(stop);
    return host.fileTransfer()->downloadFile(std::move(request));
}

TEST(StreamedTransfer, BringsFilesAndPipesThereAndBackThroughTheRealService)
{
    tarntesting::TestService service;
    TarnHost host({.endpoint = service.url(), .threads = 1});
    auto login = std::make_unique<Login>();
    login->user = u"alice";
    login->authenticationToken = service.addUser("alice");
    bounded(host.session()->login(std::move(login)));
    std::string content(3'000'000, '\0');
    content.replace(1'000'000, 5, "hello");

    for (const bool isPipe : {false, true}) {
        SCOPED_TRACE(isPipe);
        TemporaryFile local;
        ASSERT_EQ(pwrite(local.descriptor(), content.data(), content.size(), 0), 3'000'000);
        int ends[2];
        ASSERT_EQ(pipe(ends), 0);
        std::thread writer([&, file = fdopen(ends[1], "w")] {
            std::fwrite(content.data(), 1, content.size(), file);
            std::fclose(file);
        });
        auto source = std::make_shared<FileSource>(isPipe ? ends[0] : local.descriptor());
        EXPECT_EQ(source->size().has_value(), !isPipe);
        auto upload = std::make_unique<FileUpload>();
        upload->path = u"/big";
        upload->createMode = CreateMode::createOrUpdate;
        upload->size = source->size();
        upload->content = std::move(source);
        const auto stored = bounded(host.fileTransfer()->uploadFile(std::move(upload)));
        close(ends[0]);
        writer.join();
        EXPECT_EQ(stored->bytes, content.size());
        EXPECT_TRUE(stored->verified);

        TemporaryFile copy;
        auto download = std::make_unique<FileDownload>();
        download->path = u"/big";
        download->content =
            std::make_shared<FileSink>(copy.descriptor(), FileSink::Options{.keepHoles = true});
        const auto brought = bounded(host.fileTransfer()->downloadFile(std::move(download)));
        EXPECT_TRUE(brought->verified);
        EXPECT_THAT(brought->versionId, testing::StartsWith(stored->versionId));
        EXPECT_EQ(copy.content(), content);

        struct stat about {};

        ASSERT_EQ(fstat(copy.descriptor(), &about), 0);
        EXPECT_LT(about.st_blocks * 512, 100'000) << "holes were filled";
    }
}

TEST(StreamedTransfer, EndsForSixtyFourConsumersOfRandomSpeedOnOneThread)
{
    constexpr int count = 64;
    constexpr std::uint64_t size = 3 * mebibyte;
    std::atomic<int> freed = 0;
    ScriptedHttpServer server([&](ScriptedHttpServer::Connection& connection) {
        const auto head = connection.readHead();
        if (!head) return;
        const bool isEndless = head->find("/endless") != std::string::npos;
        connection.send(headOf(isEndless ? 1000 * size : size));
        if (!sendContent(connection, isEndless ? 1000 * size : size)) ++freed;
    });
    TarnHost host({.endpoint = server.url(), .threads = 1, .http = {.connectionsPerHost = count}});

    const auto isCancelled = [](int i) { return i % 4 == 0; };
    std::vector<std::shared_ptr<Consumer>> consumers;
    std::vector<Future<std::unique_ptr<FileDownloadResponse>>> downloads;
    for (int i = 0; i < count; ++i) {
        consumers.push_back(std::make_shared<Consumer>());
        downloads.push_back(downloadTo(host, consumers.back(), isCancelled(i) ? u"/endless" : u"/a"));
    }
    std::minstd_rand random;
    EXPECT_TRUE(eventually([&] {
        int open = 0;
        for (int i = 0; i < count; ++i) {
            if (downloads[static_cast<std::size_t>(i)].isReady()) continue;
            ++open;
            auto& consumer = *consumers[static_cast<std::size_t>(i)];
            if (random() % 4 == 0) consumer.request(random() % 8);
            const auto held = consumer.held();
            if (isCancelled(i) && held && consumer.bytes > 0) held->cancel();
        }
        return open == 0;
    }));
    for (int i = 0; i < count; ++i) {
        const auto& consumer = *consumers[static_cast<std::size_t>(i)];
        auto& download = downloads[static_cast<std::size_t>(i)];
        if (isCancelled(i)) {
            EXPECT_EQ(failureOf<std::runtime_error>(std::move(download)), "Content stream cancelled.");
        } else {
            EXPECT_EQ(bounded(std::move(download))->bytes, size);
            EXPECT_EQ(consumer.bytes, size);
        }
        EXPECT_EQ(consumer.ends, isCancelled(i) ? 0 : 1);
    }
    EXPECT_TRUE(eventually([&] { return freed == count / 4; })) << freed;
}

TEST(StreamedTransfer, MakesTheServiceWaitForASlowConsumerAndDoesNotBlameIt)
{
    constexpr std::uint64_t size = 64 * mebibyte;
    std::atomic<bool> allSent = false;
    ScriptedHttpServer server([&](ScriptedHttpServer::Connection& connection) {
        if (!connection.readHead()) return;
        connection.send(headOf(size));
        allSent = sendContent(connection, size);
    });
    TarnHost host({.endpoint = server.url(), .http = {.stallWindow = 200ms, .leastRate = 1000}});
    const auto consumer = std::make_shared<Consumer>();
    auto download = downloadTo(host, consumer);
    ASSERT_EQ(consumer->started.get_future().wait_for(patience), std::future_status::ready);
    consumer->request(1);
    ASSERT_TRUE(eventually([&] { return consumer->bytes > 0; }));
    EXPECT_FALSE(download.waitFor(500ms)) << "ended by the clock of a service that stalls";
    EXPECT_LE(host.transferred().received, consumer->bytes + mebibyte);
    EXPECT_FALSE(allSent);
    consumer->request(reactive_streams::unboundedDemand);
    EXPECT_EQ(bounded(std::move(download))->bytes, size);
}

/// Otherwise as many downloads as there are places, whose subscribers wait for another request, wait for ever.
TEST(StreamedTransfer, LetsOthersGoAheadWhileItStandsStillForItsSubscriberOrPublisher)
{
    ScriptedHttpServer server([](ScriptedHttpServer::Connection& connection) {
        while (const auto head = connection.readHead()) {
            if (head->find("/ping") != std::string::npos) {
                connection.send(ScriptedHttpServer::reply("<R><Value>v</Value></R>"));
            } else if (head->starts_with("PUT")) {
                if (connection.skip(5)) connection.send(ScriptedHttpServer::reply("<R/>"));
            } else {
                connection.send(headOf(64 * mebibyte));
                sendContent(connection, 64 * mebibyte);
            }
        }
    });
    TarnHost host(
        {.endpoint = server.url(), .http = {.stallWindow = 100ms, .leastRate = 0, .connectionsPerHost = 1}});
    const auto ping = [&] { return bounded(host.session()->ping(std::make_unique<Ping>()))->value; };

    const auto consumer = std::make_shared<Consumer>();
    auto download = downloadTo(host, consumer);
    ASSERT_TRUE(server.waitForHeads(1));
    EXPECT_EQ(ping(), "v") << "beside a download that nobody reads";
    consumer->request(reactive_streams::unboundedDemand);
    EXPECT_EQ(bounded(std::move(download))->bytes, 64 * mebibyte);

    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    auto request = std::make_unique<FileUpload>();
    request->path = u"/a";
    request->size = 5;
    request->content = std::make_shared<FileSource>(ends[0]);
    auto upload = host.fileTransfer()->uploadFile(std::move(request));
    ASSERT_TRUE(server.waitForHeads(3));
    EXPECT_EQ(ping(), "v") << "beside an upload that gets nothing, and after the download";
    EXPECT_EQ(write(ends[1], "hello", 5), 5);
    close(ends[1]);
    bounded(std::move(upload));
    EXPECT_EQ(ping(), "v");
    close(ends[0]);
}

/// An item costs some fifty bytes beside those that it brings.
TEST(StreamedTransfer, KeepsSmallPiecesThatWaitInFewItems)
{
    constexpr std::size_t pieces = 300'000;
    ScriptedHttpServer server([](ScriptedHttpServer::Connection& connection) {
        if (!connection.readHead()) return;
        std::string body;
        for (std::size_t i = 0; i < pieces; ++i)
            body += std::string("1\r\n") + static_cast<char>('a' + i % 26) + "\r\n";
        connection.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n" + body + "0\r\n\r\n");
    });
    TarnHost host({.endpoint = server.url()});
    const auto consumer = std::make_shared<Consumer>();
    std::string content;
    std::size_t items = 0;
    consumer->takeItem = [&](std::string_view bytes) {
        content += bytes;
        ++items;
    };
    auto download = downloadTo(host, consumer);
    ASSERT_EQ(consumer->started.get_future().wait_for(patience), std::future_status::ready);
    ASSERT_TRUE(eventually([&] { return host.transferred().received == pieces; }));
    consumer->request(reactive_streams::unboundedDemand);
    EXPECT_EQ(bounded(std::move(download))->bytes, pieces);
    EXPECT_LT(items, 100u);
    bool isInOrder = content.size() == pieces;
    for (std::size_t i = 0; isInOrder && i < pieces; ++i)
        isInOrder = content[i] == static_cast<char>('a' + i % 26);
    EXPECT_TRUE(isInOrder);
}

TEST(StreamedTransfer, BringsWhatArrivedBeforeTheErrorThatCutIt)
{
    for (const bool isStopped : {true, false}) {
        std::stop_source stop;
        ScriptedHttpServer server([&](ScriptedHttpServer::Connection& connection) {
            if (!connection.readHead()) return;
            connection.send(headOf(mebibyte));
            connection.send(std::string(200'000, 'x'));
            if (isStopped) connection.stall();
        });
        TarnHost host({.endpoint = server.url(), .threads = 1});
        const auto consumer = std::make_shared<Consumer>();
        consumer->afterItem = [&](Consumer& self) {
            if (self.bytes == 200'000 && isStopped) stop.request_stop();
        };
        auto download = downloadTo(host, consumer, u"/a", stop.get_token());
        ASSERT_EQ(consumer->started.get_future().wait_for(patience), std::future_status::ready);
        consumer->request(100);
        EXPECT_THAT(
            failureOf<TransportError>(std::move(download)),
            HasSubstr(isStopped ? "was stopped while receiving the reply" : "with 848576 bytes remaining"));
        EXPECT_EQ(consumer->bytes, 200'000u);
        EXPECT_EQ(consumer->errors, 1);
    }
}

TEST(StreamedTransfer, IsEndedByTheEndOfItsHost)
{
    ScriptedHttpServer server([](ScriptedHttpServer::Connection& connection) {
        if (!connection.readHead()) return;
        connection.send(headOf(mebibyte) + "x");
        connection.stall();
    });
    auto host = std::make_unique<TarnHost>(TarnHost::Options{.endpoint = server.url()});
    const auto consumer = std::make_shared<Consumer>(); // which never asks
    auto download = downloadTo(*host, consumer);
    ASSERT_EQ(consumer->started.get_future().wait_for(patience), std::future_status::ready);
    host.reset();
    EXPECT_EQ(failureOf<TransportError>(std::move(download)), "The host has been shut down.");
    EXPECT_EQ(consumer->errors, 1);
}

TEST(StreamedTransfer, BringsAnItemToAnotherThreadWhileTheHeadIsStillBeingHandedOut)
{
    ScriptedHttpServer server([](ScriptedHttpServer::Connection& connection) {
        if (connection.readHead()) connection.send(headOf(5) + "hello");
    });
    HttpClientUnderTest under;
    const auto consumer = std::make_shared<Consumer>();
    auto request = std::make_unique<http::HttpStreamedRequest>(server.url(), "get", nullptr);
    request->replyBody = http::ReplyBody::content;
    auto handled = under.send(std::move(request)).then([&](Future<HttpClientUnderTest::Response>&& reply) {
        std::thread reader([&, body = reply.get()->body] {
            body->subscribe(consumer);
            consumer->request(1);
        });
        EXPECT_TRUE(eventually([&] { return consumer->bytes == 5 && consumer->ends == 1; }));
        reader.join();
    });
    bounded(std::move(handled));
}

TEST(StreamedTransfer, FreesTheConnectionOfABodyThatNobodyReads)
{
    std::atomic<int> freed = 0;
    ScriptedHttpServer server([&](ScriptedHttpServer::Connection& connection) {
        if (!connection.readHead()) return;
        connection.send(headOf(64 * mebibyte));
        if (!sendContent(connection, 64 * mebibyte)) ++freed;
    });
    for (const bool isRefused : {false, true}) {
        HttpOptions options;
        if (isRefused) options.replyCheck = [](const ReceivedReply&) { return "Not like this."; };
        HttpClientUnderTest under(options);
        auto request = std::make_unique<http::HttpStreamedRequest>(server.url(), "get", nullptr);
        request->replyBody = http::ReplyBody::content;
        auto reply = under.send(std::move(request));
        if (isRefused) {
            EXPECT_EQ(transportFailure(std::move(reply))->phase, TransportPhase::reply);
        } else {
            bounded(std::move(reply)).reset();
        }
        EXPECT_TRUE(eventually([&] { return freed == (isRefused ? 2 : 1); })) << "while the client runs";
    }
}

} // namespace
} // namespace connector::host::test
