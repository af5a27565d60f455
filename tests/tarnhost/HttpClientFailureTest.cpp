// How exchanges go wrong: what is refused before it is sent, what breaks on the way, and that a change is
// never sent twice.
#include "Bounded.h"
#include "HttpClientUnderTest.h"
#include "support/ScriptedHttpServer.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <thread>

namespace connector::host::test {
namespace {

using testing::HasSubstr;
using namespace std::chrono_literals;
using namespace std::string_literals;

TEST(HttpClient, RefusesWhatItCannotSendAsItIs)
{
    struct Row {
        const char* method;
        const char* url; ///< "{}" stands for the server
        HttpClientUnderTest::Headers headers;
        const char* reason;
    };

    const Row rows[] = {
        {"get", "http://{}/", {{"x-token", "secret\nx: y"}}, "\"x-token\" holds"},
        {"get", "http://{}/", {{"x-token", "secret\r"}}, "\"x-token\" holds"},
        {"get", "http://{}/", {{"x-token", "secret\0"s}}, "\"x-token\" holds"},
        {"get", "http://{}/", {{"x\r\ny", "v"}}, "header name"},
        {"get", "http://{}/", {{"x: y", "v"}}, "header name"},
        {"get", "http://{}/", {{"", "v"}}, "header name"},
        {"put", "http://{}/", {{"content-LENGTH", "5"}}, "follows from the body"},
        {"put", "http://{}/", {{"Transfer-Encoding", "chunked"}}, "from the body"},
        {"post", "http://{}/", {}, "method"},
        {"GET", "http://{}/", {}, "method"},
        {"get", "http://me:secret@{}/", {}, "user name"},
        {"get", "file:///etc/secret", {}, "neither http nor https"},
        {"get", "secret place", {}, "not valid"},
    };
    ScriptedHttpServer server(ScriptedHttpServer::always(ScriptedHttpServer::reply("ok")));
    for (const Row& row : rows) {
        HttpClientUnderTest http;
        std::string url = row.url;
        if (const auto at = url.find("{}"); at != std::string::npos) url.replace(at, 2, server.peer());
        const auto failure = transportFailure(http.send(row.method, url, row.headers));
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->phase, TransportPhase::prepare);
        EXPECT_THAT(failure->text, HasSubstr(row.reason));
        EXPECT_THAT(failure->text, testing::Not(HasSubstr("secret")));
    }
    EXPECT_EQ(server.connectionCount(), 0u);
}

struct Broken {
    std::string reply; ///< sent at once; the connection stays open unless `closes`
    std::string reason;
    http::ReplyBody asked = http::ReplyBody::document;
    std::string drip = {}; ///< then sent for ever, every 20 ms
    bool closes = false;
};

TEST(BrokenReply, IsToldWithWhatIsWrongWithIt)
{
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const std::string chunked = ok + "Transfer-Encoding: chunked\r\n\r\n";
    const std::string largeChunk = "640\r\n" + std::string(1600, 'x') + "\r\n";
    const std::string longHeader = "x: " + std::string(90'000, 'x') + "\r\n";
    constexpr auto document = http::ReplyBody::document;
    constexpr auto content = http::ReplyBody::content;
    const Broken rows[] = {
        {ok, "The connection was closed in the head of the reply.", document, "", true},
        {ok + "\r\n<a/>", "The reply does not say where it ends, so that nobody can tell it is complete."},
        {ok + "Content-Length: 1\r\ncontent-length: 1\r\n\r\nx",
         "The reply says more than once where it ends."},
        {ok + "Content-Length: 1x\r\n\r\nx", "The reply announces no valid length."},
        {ok + "Content-Length: 1001\r\n\r\n", "The reply is larger than 1000 bytes."},
        {chunked + largeChunk, "The reply is larger than 1000 bytes."},
        {ok + "Content-Length: 2001\r\n\r\n", "The reply is larger than 2000 bytes.", content},
        {chunked + largeChunk, "The reply is larger than 1500 bytes.", content},
        {"HTTP/1.1 500 No\r\nContent-Length: 1001\r\n\r\n", "The reply is larger than 1000 bytes.", content},
        {ok + longHeader + longHeader + longHeader, "The head of the reply is larger than 256 KiB."},
        {"", "No reply came within 0.3 seconds."},
        {ok + "Content-Length: 1000\r\n\r\n",
         "The reply came at less than 100 bytes per second for 0.4 seconds.", content, "x"},
        {chunked, "The reply was not complete after 0.7 seconds.", document, "5\r\nxxxxx\r\n"},
    };
    for (const Broken& row : rows) {
        ScriptedHttpServer server([&](auto& connection) {
            if (!connection.readRequest() || !connection.send(row.reply) || row.closes) return;
            while (!row.drip.empty() && connection.send(row.drip))
                std::this_thread::sleep_for(20ms);
            connection.stall();
        });
        HttpClientUnderTest http({.replyTimeout = 300ms,
                                  .stallWindow = 400ms,
                                  .leastRate = 100,
                                  .documentTimeout = 700ms,
                                  .documentLimit = 1000,
                                  .contentLimit = 2000,
                                  .chunkedContentLimit = 1500});
        auto request =
            std::make_unique<http::HttpClientRequest>(server.url("/a?token=secret"), "get", nullptr);
        request->replyBody = row.asked;
        const auto failure = transportFailure(http.send(std::move(request)));
        ASSERT_TRUE(failure) << row.reason;
        EXPECT_EQ(failure->phase, TransportPhase::exchange);
        EXPECT_EQ(failure->url, server.url("/a"));
        EXPECT_EQ(failure->text, "Could not complete the exchange with " + server.peer() + ": " + row.reason);
    }
}

TEST(ReplyThatTakesItsTime, IsWaitedForWhereTheLimitsAreForEver)
{
    ScriptedHttpServer server([](auto& connection) {
        connection.readRequest();
        std::this_thread::sleep_for(200ms);
        connection.send(ScriptedHttpServer::reply("late"));
    });
    constexpr auto most = std::chrono::milliseconds::max();
    HttpClientUnderTest http({.connectTimeout = most,
                              .replyTimeout = most,
                              .stallWindow = 50ms, // so that the limits are looked at often
                              .leastRate = 0,
                              .documentTimeout = most});
    EXPECT_EQ(textOf(*bounded(http.send("get", server.url()))), "late");
}

TEST(RequestThatIsNotTaken, Fails)
{
    ScriptedHttpServer server([](auto& connection) { connection.ignore(); });
    HttpClientUnderTest http({.stallWindow = 400ms});
    const auto failure =
        transportFailure(http.send("put", server.url(), {}, bodyOf(std::string(50'000'000, 'x'))));
    ASSERT_TRUE(failure);
    EXPECT_THAT(failure->text, HasSubstr("The request was taken at less than 1024 bytes per second"));
    EXPECT_TRUE(failure->mayHaveHappened);
}

TEST(NoConnection, WhenTheHostIsUnknown)
{
    HttpClientUnderTest http;
    const auto unknown = transportFailure(http.send("get", "http://nowhere.invalid/"));
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->phase, TransportPhase::connect);
    EXPECT_THAT(unknown->text, testing::StartsWith("Could not connect to nowhere.invalid:80: "));
}

TEST(NoConnection, ToAProxyIsToldAsSuch)
{
    const auto proxy = "127.0.0.1:" + std::to_string(closedPort());
    HttpClientUnderTest http({.proxy = "http://user:secret@" + proxy});
    const auto failure = transportFailure(http.send("get", "http://files.example.org/"));
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->text,
              "Could not connect to files.example.org:80: Connection refused (through the proxy " + proxy +
                  ")");
}

TEST(NoConnection, WhenThePeerDoesNotSpeakTls)
{
    ScriptedHttpServer server([](auto& connection) { connection.send("220 not TLS\r\n"); });
    HttpClientUnderTest http;
    const auto failure = transportFailure(http.send("get", "https://" + server.peer()));
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->phase, TransportPhase::secure);
}

TEST(ChangeOnDeadConnection, IsSentOnce)
{
    struct Row {
        const char* method;
        std::size_t bodyBytes;
        bool readsBody;
        bool atMostOnce = false;
    };

    const Row rows[] = {{"delete", 0, true}, {"get", 0, true, true},    {"put", 0, true},
                        {"put", 10, false},  {"put", 20'000'000, true}, {"put", 20'000'000, false}};
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.method) + " " + std::to_string(row.bodyBytes));
        ScriptedHttpServer server([&](ScriptedHttpServer::Connection& connection) {
            if (!connection.readRequest() || connection.number() == 1) return; // a fresh one is no better
            connection.send(ScriptedHttpServer::reply("first"));
            if (row.readsBody) {
                connection.readRequest();
            } else {
                connection.readHead();
            }
        });
        HttpClientUnderTest http;
        bounded(http.send("get", server.url()));
        auto body = row.bodyBytes ? bodyOf(std::string(row.bodyBytes, 'x')) : nullptr;
        auto change = std::make_unique<http::HttpClientRequest>(server.url("/f"), row.method, body);
        change->atMostOnce = row.atMostOnce;
        const auto failure = transportFailure(http.send(std::move(change)));
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->phase, TransportPhase::exchange);
        EXPECT_TRUE(failure->mayHaveHappened);
        const auto heads = server.heads();
        EXPECT_EQ(std::count_if(heads.begin(), heads.end(),
                                [](const auto& head) { return head.find(" /f") != std::string::npos; }),
                  1);
    }
}

TEST(GetOnDeadConnection, IsRepeated)
{
    ScriptedHttpServer server([](auto& connection) {
        if (!connection.readRequest()) return;
        connection.send(ScriptedHttpServer::reply("answer"));
        connection.readRequest();
    });
    HttpClientUnderTest http;
    bounded(http.send("get", server.url()));
    EXPECT_EQ(textOf(*bounded(http.send("get", server.url()))), "answer");
    EXPECT_EQ(server.connectionCount(), 2u);
}

} // namespace
} // namespace connector::host::test
