// What leaves the machine and what comes back, byte for byte: a header too many, a normalised path or a body
// without its length reaches another object or none.
#include "Bounded.h"
#include "HttpClientUnderTest.h"
#include "support/ManualPublisher.h"
#include "support/ScriptedHttpServer.h"

#include "tarn/foundation/ContentReduction.h"
#include "tarn/foundation/ReducingSubscriber.h"

#include <gmock/gmock.h>

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <future>
#include <thread>
#include <vector>

namespace connector::host::test {
namespace {

using common::DataBuffer;
using testing::ElementsAre;

TEST(HttpClient, SendsExactlyTheseBytes)
{
    struct Row {
        const char* method;
        const char* target;
        HttpClientUnderTest::Headers headers;
        const char* body;  ///< null: none
        const char* bytes; ///< after "Host" and "Accept"
    };

    const Row rows[] = {
        {"get", "/a%20b?x=1&y=%26", {{"x-session", "s1"}}, nullptr, "x-session: s1\r\n\r\n"},
        {"get", "/", {{"x-session", ""}}, nullptr, "x-session:\r\n\r\n"},
        {"get", "/", {{"x-session", " \t"}}, nullptr, "x-session:\r\n\r\n"},
        {"get", "/a/../b/./c//d", {}, nullptr, "\r\n"},
        {"put", "/f", {{"x", "y"}}, "hello", "x: y\r\nContent-Length: 5\r\n\r\nhello"},
        {"put", "/f", {}, nullptr, "Content-Length: 0\r\n\r\n"},
        {"put", "/f", {}, "", "Content-Length: 0\r\n\r\n"},
        {"delete", "/f", {}, nullptr, "\r\n"},
    };
    for (const Row& row : rows) {
        ScriptedHttpServer server(ScriptedHttpServer::always(ScriptedHttpServer::reply("ok")));
        HttpClientUnderTest http;
        // Twice: the second time the service is known, and less is asked of libcurl.
        for (int i = 0; i < 2; ++i) {
            auto body = row.body ? bodyOf(row.body) : nullptr;
            EXPECT_EQ(bounded(http.send(row.method, server.url(row.target), row.headers, body))->status, 200);
        }
        std::string method = row.method;
        std::transform(method.begin(), method.end(), method.begin(), ::toupper);
        const auto bytes = method + " " + row.target + " HTTP/1.1\r\nHost: " + server.peer() +
                           "\r\nAccept: */*\r\n" + row.bytes;
        EXPECT_THAT(server.requests(), ElementsAre(bytes, bytes));
        EXPECT_EQ(http.client->transferred().sent, 2 * std::string(row.body ? row.body : "").size());
    }
}

TEST(HttpClient, FindsTheHostAfterTooManySlashes)
{
    ScriptedHttpServer one(ScriptedHttpServer::always(ScriptedHttpServer::reply("ok")));
    ScriptedHttpServer two(ScriptedHttpServer::always(ScriptedHttpServer::reply("ok")));
    HttpClientUnderTest http;
    for (const auto* server : {&one, &two, &one})
        EXPECT_EQ(bounded(http.send("get", "http:///" + server->peer() + "/f"))->status, 200);
    EXPECT_EQ(one.heads().size(), 2U);
    EXPECT_EQ(two.heads().size(), 1U);
}

TEST(HttpClient, GoesOnWhileContinuationsHoldAllDeliveryThreads)
{
    constexpr std::size_t size = 32 << 20; // more than fits between client and server
    std::promise<void> held, arrived, attached;
    ScriptedHttpServer server([&, all = attached.get_future().share()](
                                  ScriptedHttpServer::Connection& connection) {
        const auto head = connection.readHead();
        if (head->starts_with("PUT")) {
            held.get_future().wait();
            if (connection.skip(size)) arrived.set_value();
        } else {
            all.wait(); // what is attached to a reply that is there runs at once, and not on a delivery thread
        }
        connection.send(ScriptedHttpServer::reply("ok"));
    });
    HttpClientUnderTest http;
    auto upload = http.send("put", server.url("/large"), {}, bodyOf(std::string(size, 'x')));
    ASSERT_TRUE(server.waitForHeads(1));
    std::atomic<unsigned> holding = 0;
    std::vector<Future<bool>> replies;
    const auto whole = arrived.get_future().share();
    for (int i = 0; i < 2; ++i) { // as many as there are threads
        replies.push_back(http.send("get", server.url("/small")).then([&](auto&&) {
            if (++holding == 2) held.set_value();
            return whole.wait_for(patience) == std::future_status::ready;
        }));
    }
    attached.set_value();
    for (auto& reply : replies)
        EXPECT_TRUE(bounded(std::move(reply)));
    EXPECT_EQ(bounded(std::move(upload))->status, 200);
}

TEST(HttpClient, AnswersWhatIsSentWhileItsThreadsComeToAnEnd)
{
    ScriptedHttpServer server(ScriptedHttpServer::always(ScriptedHttpServer::reply("ok")));
    HttpClientUnderTest http;
    std::atomic<int> done = 0;
    http.threads->post([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // for the end to begin
        if (http.send("get", server.url("/f")).waitFor(patience)) ++done;
    });
    for (int i = 0; i < 20; ++i) {
        http.threads->post([&] {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            ++done;
        });
    }
    std::thread another([&] { http.threads->drain(); });
    http.threads->drain();
    EXPECT_EQ(done, 21) << "also for whom the end has already begun";
    another.join();
}

TEST(HttpClient, RestsThoughAChildHoldsAConnectionThatIsClosed)
{
    std::promise<void> held;
    ScriptedHttpServer server([&](ScriptedHttpServer::Connection& connection) {
        connection.readHead();
        held.get_future().wait();
        connection.send("HTTP/1.1 200 OK\r\nConnection: close\r\nContent-Length: 0\r\n\r\n");
        std::this_thread::sleep_for(std::chrono::milliseconds(20)); // for the client to close its end
        connection.send("and more");
    });
    HttpClientUnderTest http;
    auto reply = http.send("get", server.url("/"));
    ASSERT_TRUE(server.waitForHeads(1));
    const pid_t child = ::fork();
    if (child == 0) {
        ::pause();
        ::_exit(0);
    }
    held.set_value();
    EXPECT_EQ(bounded(std::move(reply))->status, 200);
    const auto before = std::clock();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const auto used = 1000 * (std::clock() - before) / CLOCKS_PER_SEC;
    EXPECT_LT(used, 150) << "milliseconds of 300";
    ::kill(child, SIGKILL);
    ::waitpid(child, nullptr, 0);
}

TEST(HttpClient, HandsStatusAndBodyOverAsTheyCame)
{
    struct Row {
        std::string bytes;
        std::uint16_t status;
        std::string body;
    };

    const Row rows[] = {
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n"
         "3\r\nabc\r\n1;x=y\r\nd\r\n0\r\nTrailer: t\r\n\r\n",
         200, "abcd"},
        {"HTTP/1.1 302 Found\r\nLocation: /elsewhere\r\nContent-Length: 0\r\n\r\n", 302, ""},
        {"HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 4\r\n\r\n\x1f\x8b\x08\x01", 200,
         "\x1f\x8b\x08\x01"},
    };
    for (const Row& row : rows) {
        ScriptedHttpServer server(ScriptedHttpServer::always(row.bytes));
        HttpClientUnderTest http;
        auto response = bounded(http.send("get", server.url("/x")));
        EXPECT_EQ(response->status, row.status);
        EXPECT_EQ(textOf(*response), row.body);
        EXPECT_EQ(server.requests().size(), 1u);
    }
}

TEST(HttpClientBody, ArrivesInOneItemThatFillsItsStorage)
{
    // Of a length that nothing announces, so that the storage grows from nothing.
    std::string content(3'000'000, 'x');
    content[1'234'567] = 'y';
    ScriptedHttpServer server([&](auto& connection) {
        connection.readRequest();
        connection.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n2dc6c0\r\n" + content +
                        "\r\n0\r\n\r\n");
    });
    HttpClientUnderTest http;
    auto response = bounded(http.send("get", server.url()));
    common::DataBuffer body; // as it arrives: gathering it would give it storage that fits
    auto items = std::make_shared<reactive_streams::ReducingSubscriber<common::DataBuffer, int>>(
        0, [&](common::DataBuffer&& item, int&& count) {
            body = std::move(item);
            return count + 1;
        });
    response->body->subscribe(items);
    EXPECT_EQ(bounded(items->getFuture()), 1);
    EXPECT_EQ(body.bytes(), content);
    EXPECT_EQ(body.capacity, body.size);
    EXPECT_EQ(http.client->transferred().received, content.size());
}

/// Brings half, and then fails or brings no more.
struct Half : tarntest::ManualPublisher {
    explicit Half(bool isFailing) : fails(isFailing) {}

    void subscribe(std::shared_ptr<Subscriber> added) override
    {
        added->onSubscribe(link);
        added->onNext(DataBuffer("half"));
        if (fails) added->onError(std::make_exception_ptr(std::runtime_error("disk gone")));
    }

    const bool fails;
};

TEST(HttpClientBody, ThatFailsOrNeverEndsIsNotSent)
{
    ScriptedHttpServer server(ScriptedHttpServer::always(ScriptedHttpServer::reply("ok")));
    HttpClientUnderTest http;
    EXPECT_EQ(
        failureOf<std::runtime_error>(http.send("put", server.url("/f"), {}, std::make_shared<Half>(true))),
        "disk gone");
    auto endless = http.send("put", server.url("/f"), {}, std::make_shared<Half>(false));
    http.client->stop();
    const auto failure = transportFailure(std::move(endless));
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->phase, TransportPhase::shutdown);
    EXPECT_EQ(server.connectionCount(), 0u);
}

TEST(HttpClient, IgnoresTheProxyOfTheEnvironment)
{
    ScriptedHttpServer server(ScriptedHttpServer::always(ScriptedHttpServer::reply("direct")));
    const std::string nowhere = "http://127.0.0.1:" + std::to_string(closedPort());

    struct Variable {
        Variable(const char* n, const std::string& value) : name(n) { ::setenv(name, value.c_str(), 1); }

        ~Variable() { ::unsetenv(name); }

        const char* name;
    } const http_proxy("http_proxy", nowhere), all_proxy("ALL_PROXY", nowhere);

    HttpClientUnderTest http;
    EXPECT_EQ(textOf(*bounded(http.send("get", server.url()))), "direct");
}

TEST(HttpClient, CanBeStartedAgainAfterAStop)
{
    ScriptedHttpServer server(ScriptedHttpServer::always(ScriptedHttpServer::reply("ok")));
    HttpClientUnderTest http;
    http.client->stop();
    EXPECT_EQ(failureOf<std::runtime_error>(http.send("get", server.url())),
              "Service exists but is not running.");
    http.client->start();
    EXPECT_EQ(textOf(*bounded(http.send("get", server.url()))), "ok");
}

} // namespace
} // namespace connector::host::test
