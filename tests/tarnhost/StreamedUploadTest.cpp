// Contents on their way to the service: asked for as they are taken, and broken off when they cannot be brought.
#include "Bounded.h"
#include "support/ScriptedHttpServer.h"
#include "tarn/protocol/TarnError.h"
#include "tarn/transfer/FileTransferMessages.h"
#include "tarnhost/TarnHost.h"
#include "tarnhost/TransportError.h"

#include <gmock/gmock.h>

#include <atomic>
#include <future>
#include <thread>

namespace connector::host::test {
namespace {

using namespace std::chrono_literals;
using namespace tarn;
using common::DataBuffer;
using testing::HasSubstr;

auto uploadOf(TarnHost& host, ContentPublisher content, std::optional<std::uint64_t> size)
{
    auto request = std::make_unique<FileUpload>();
    request->path = u"/a";
    request->content = std::move(content);
    request->size = size;
    return host.fileTransfer()->uploadFile(std::move(request));
}

/// What a publisher does after its last item.
enum class Ending { complete, fail, cancel };

/// Brings items on a thread of its own, as many as are asked for, once the gate is open.
class Producer : public reactive_streams::PublisherAPI<DataBuffer>,
                 public reactive_streams::Subscription,
                 public std::enable_shared_from_this<Producer> {
public:
    explicit Producer(int itemCount, Ending then = Ending::complete) : items(itemCount), ending(then) {}

    void subscribe(ContentSubscriber taker) override
    {
        receiver = taker;
        subscribing = true;
        taker->onSubscribe(weak_from_this());
        std::this_thread::sleep_for(5ms); // for another thread to ask too early
        subscribing = false;
    }

    Future<bool> completion() override { return makeReadyFuture(true); }

    void request(std::uint64_t n) override
    {
        EXPECT_FALSE(subscribing) << "one call at a time: a publisher may have no lock";
        if (last.joinable()) last.join();
        last = std::thread([this, n] {
            if (gate.valid()) gate.wait();
            for (std::uint64_t i = 0; i < n && brought < items; ++i) {
                ++brought;
                receiver->onNext(DataBuffer(std::string(100'000, 'x')));
            }
            if (brought < items) return;
            if (ending == Ending::complete) receiver->onComplete();
            if (ending == Ending::fail) receiver->onError(error);
            if (ending == Ending::cancel) receiver->cancel();
        });
    }

    void cancel() override { cancelled.set_value(); }

    ~Producer() override
    {
        if (last.joinable()) last.join();
    }

    std::atomic<int> brought{0};
    std::promise<void> cancelled;
    std::shared_future<void> gate; ///< open unless set
    std::exception_ptr error = std::make_exception_ptr(std::runtime_error("The disk is gone."));

private:
    const int items;
    const Ending ending;
    std::atomic<bool> subscribing = false;
    ContentSubscriber receiver;
    std::thread last;
};

TEST(StreamedUpload, SendsTheItemsOfAnotherThreadOrSaysWhyNot)
{
    struct Row {
        const char* name;
        int items;
        Ending ending;
        std::optional<std::uint64_t> size;
        std::string outcome;
    };

    for (const auto& row :
         {Row{"all", 20, Ending::complete, 2'000'000, "no error"},
          Row{"failing publisher", 20, Ending::fail, 3'000'000, "The disk is gone."},
          Row{"failing publisher, unknown size", 3, Ending::fail, {}, "The disk is gone."},
          Row{"cancelling publisher", 20, Ending::cancel, 3'000'000, "Content stream cancelled."},
          Row{"too little", 2, Ending::complete, 300'000, "The content ended after 200000 of 300000 bytes."},
          Row{"too much", 2, Ending::complete, 150'000,
              "The content to send goes on after 150000 of 150000"}}) {
        SCOPED_TRACE(row.name);
        std::atomic<bool> done = false;
        bool isWhole = false;
        ScriptedHttpServer server([&](ScriptedHttpServer::Connection& connection) {
            isWhole = connection.readHead() && connection.skip(row.size.value_or(10'000'000));
            if (isWhole) connection.send(ScriptedHttpServer::reply("<R/>"));
            done = true;
        });
        TarnHost host({.endpoint = server.url(), .threads = 2});
        const auto producer = std::make_shared<Producer>(row.items, row.ending);
        EXPECT_THAT(failureOf<std::runtime_error>(uploadOf(host, producer, row.size)),
                    HasSubstr(row.outcome));
        // The connection is closed where not all of it came; a publisher that fails at once keeps it from being made.
        EXPECT_TRUE(eventually([&] { return done || server.connectionCount() == 0; }));
        EXPECT_EQ(isWhole, row.outcome == "no error");
    }
}

TEST(StreamedUpload, EndsWithAPublisherThatDoesNotSayWhatItFailedWith)
{
    ScriptedHttpServer server([](ScriptedHttpServer::Connection& connection) { connection.ignore(); });
    TarnHost host({.endpoint = server.url()});
    const auto producer = std::make_shared<Producer>(1, Ending::fail);
    producer->error = nullptr;
    EXPECT_EQ(failureOf<std::runtime_error>(uploadOf(host, producer, {})),
              "The publisher of the content failed and did not say why.");
}

/// A connection may die just when the next request is on its way. What has no byte of its body sent cannot have
/// been carried out; of what has, nobody knows.
TEST(StreamedUpload, IsSentAgainAfterADeadConnectionWhileItsBodyWaits)
{
    for (const bool waits : {true, false}) {
        std::promise<void> gate;
        std::atomic<int> attempts = 0;
        ScriptedHttpServer server([&](ScriptedHttpServer::Connection& connection) {
            if (connection.number() == 0) {
                connection.readRequest();
                connection.send(ScriptedHttpServer::reply("<R/>"));
            }
            if (!connection.readHead()) return;
            ++attempts;
            if (!connection.skip(waits ? 0 : 50'000)) return;
            if (connection.number() == 0) return connection.reset();
            gate.set_value();
            if (connection.skip(2'000'000)) connection.send(ScriptedHttpServer::reply("<R/>"));
        });
        TarnHost host({.endpoint = server.url(), .threads = 1});
        bounded(uploadOf(host, std::make_shared<Producer>(0), 0));
        const auto producer = std::make_shared<Producer>(20);
        if (waits) producer->gate = gate.get_future().share();
        EXPECT_THAT(failureOf<std::runtime_error>(uploadOf(host, producer, 2'000'000)),
                    HasSubstr(waits ? "no error" : "Could not complete the exchange"));
        EXPECT_EQ(attempts, waits ? 2 : 1);
    }
}

TEST(StreamedUpload, IsTriedAgainWithWhatItHasAlreadyWhenThereWasNoConnection)
{
    const std::string connected("\0\x5a\0\0\0\0\0\0", 8);
    ScriptedHttpServer proxy([&](ScriptedHttpServer::Connection& connection) {
        if (!connection.skip(9) || connection.number() < 2) return; // a SOCKS proxy that goes away
        connection.send(connected);
        if (connection.readHead() && connection.skip(2'000'000))
            connection.send(ScriptedHttpServer::reply("<R/>"));
    });
    TarnHost host(
        {.endpoint = "http://127.0.0.1:1",
         .http = {.proxy = "socks4://" + proxy.peer(), .retries = {.most = 2, .firstPause = 20ms}}});
    EXPECT_EQ(failureOf<std::runtime_error>(uploadOf(host, std::make_shared<Producer>(20), 2'000'000)),
              "no error");
    EXPECT_EQ(proxy.connectionCount(), 3u);
}

TEST(StreamedUpload, IsNotTriedAgainWithoutTheBytesThatAreGone)
{
    ScriptedHttpServer server([&](ScriptedHttpServer::Connection& connection) {
        if (!connection.readHead() || !connection.skip(50'000)) return;
        connection.send("HTTP/1.1 429 Too Many Requests\r\nConnection: close\r\n"
                        "Content-Length: 4\r\n\r\nwait");
        connection.ignore();
    });
    TarnHost host({.endpoint = server.url(), .http = {.retries = {.most = 1, .firstPause = 2ms}}});
    EXPECT_NE(failureOf<TarnError>(uploadOf(host, std::make_shared<Producer>(20), 2'000'000)), "no error");
    EXPECT_EQ(server.connectionCount(), 1u);
}

TEST(StreamedUpload, HearsOfARefusalWhileThePublisherHasNothingToGive)
{
    struct Row {
        std::string begin; ///< of the reply
        std::string end;   ///< sent when the client has seen the beginning
    };

    const std::string closing = "HTTP/1.1 413 Content Too Large\r\nConnection: close\r\n";
    for (const auto& row : {Row{ScriptedHttpServer::reply("<R/>", "413 Content Too Large"), ""},
                            Row{closing + "Content-Length: 4\r\n\r\n", "<R/>"},
                            Row{closing + "Transfer-Encoding: chunked\r\n\r\n4\r\n<R/>\r\n", "0\r\n\r\n"}})
        for (const auto size : {std::optional<std::uint64_t>(200'000), std::optional<std::uint64_t>()}) {
            SCOPED_TRACE(row.begin);
            std::promise<void> gate;
            ScriptedHttpServer server([&](ScriptedHttpServer::Connection& connection) {
                if (!connection.readHead() || !connection.send(row.begin)) return;
                std::this_thread::sleep_for(50ms);
                connection.send(row.end);
                connection.ignore();
            });
            TarnHost host({.endpoint = server.url()});
            const auto producer = std::make_shared<Producer>(2);
            producer->gate = gate.get_future().share();
            EXPECT_EQ(failureOf<TarnError>(uploadOf(host, producer, size)), "Unknown error.");
            EXPECT_EQ(producer->cancelled.get_future().wait_for(patience), std::future_status::ready);
            gate.set_value();
        }
}

/// Brings one byte whenever it is asked.
struct Dripper : reactive_streams::PublisherAPI<DataBuffer>,
                 reactive_streams::Subscription,
                 std::enable_shared_from_this<Dripper> {
    void subscribe(ContentSubscriber taker) override
    {
        receiver = taker;
        taker->onSubscribe(weak_from_this());
    }

    void request(std::uint64_t n) override
    {
        brought += n;
        receiver->onNext(DataBuffer("x"));
    }

    void cancel() override {}

    Future<bool> completion() override { return makeReadyFuture(true); }

    ContentSubscriber receiver;
    std::atomic<std::uint64_t> brought{0};
};

/// An item of one byte takes some fifty more.
TEST(StreamedUpload, AsksForNoMoreItemsThanFitIntoItsQueueHoweverSmall)
{
    ScriptedHttpServer proxy([](ScriptedHttpServer::Connection& connection) { connection.stall(); });
    TarnHost host({.endpoint = "http://127.0.0.1:1",
                   .http = {.connectTimeout = 1s, .proxy = "socks4://" + proxy.peer()}});
    const auto dripper = std::make_shared<Dripper>();
    EXPECT_THAT(failureOf<TransportError>(uploadOf(host, dripper, std::nullopt)), HasSubstr("connect"));
    EXPECT_LT(dripper->brought, 10'000u);
}

TEST(StreamedUpload, AsksForNoMoreThanTheServiceTakes)
{
    ScriptedHttpServer server([&](ScriptedHttpServer::Connection& connection) { connection.ignore(); });
    TarnHost host({.endpoint = server.url(), .http = {.stallWindow = 300ms}});
    const auto producer = std::make_shared<Producer>(100'000);
    EXPECT_THAT(failureOf<TransportError>(uploadOf(host, producer, std::nullopt)),
                HasSubstr("The request was taken at less than"));
    EXPECT_LT(producer->brought, 200) << "beyond what the kernel's buffers hold";
    EXPECT_EQ(producer->cancelled.get_future().wait_for(patience), std::future_status::ready);
}

} // namespace
} // namespace connector::host::test
