// How exchanges go wrong: what is refused before it is sent, what breaks on the way, and that a change is
// never sent twice.
#include "Bounded.h"
#include "HttpClientUnderTest.h"
#include "support/ScriptedHttpServer.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace connector::host::test {
namespace {

using testing::HasSubstr;
using namespace std::string_literals;

struct RefusedCase {
    const char* name;
    const char* method;
    const char* url; ///< "{}" stands for the server
    HttpClientUnderTest::Headers headers;
    const char* reason;
};

class Refused : public testing::TestWithParam<RefusedCase> {};

TEST_P(Refused, BeforeAnythingIsSent)
{
    const RefusedCase& row = GetParam();
    ScriptedHttpServer server(ScriptedHttpServer::always(ScriptedHttpServer::reply("ok")));
    HttpClientUnderTest http;
    std::string url = row.url;
    if (const auto at = url.find("{}"); at != std::string::npos) url.replace(at, 2, server.peer());

    const auto failure = transportFailure(http.send(row.method, url, row.headers));
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->phase, TransportPhase::prepare);
    EXPECT_THAT(failure->text, HasSubstr(row.reason));
    EXPECT_THAT(failure->text, testing::Not(HasSubstr("secret")));
    EXPECT_EQ(server.connectionCount(), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    , Refused,
    testing::Values(
        RefusedCase{
            "LineFeedInValue", "get", "http://{}/", {{"x-token", "secret\nx: y"}}, "\"x-token\" holds"},
        RefusedCase{"ReturnInValue", "get", "http://{}/", {{"x-token", "secret\r"}}, "\"x-token\" holds"},
        RefusedCase{"NulInValue", "get", "http://{}/", {{"x-token", "secret\0"s}}, "\"x-token\" holds"},
        RefusedCase{"LineBreakInName", "get", "http://{}/", {{"x\r\ny", "v"}}, "header name"},
        RefusedCase{"ColonInName", "get", "http://{}/", {{"x: y", "v"}}, "header name"},
        RefusedCase{"EmptyName", "get", "http://{}/", {{"", "v"}}, "header name"},
        RefusedCase{"OwnLength", "put", "http://{}/", {{"content-LENGTH", "5"}}, "follows from the body"},
        RefusedCase{"OwnFraming", "put", "http://{}/", {{"Transfer-Encoding", "chunked"}}, "from the body"},
        RefusedCase{"OtherMethod", "post", "http://{}/", {}, "method"},
        RefusedCase{"UpperCaseMethod", "GET", "http://{}/", {}, "method"},
        RefusedCase{"UserInUrl", "get", "http://me:secret@{}/", {}, "user name"},
        RefusedCase{"OtherScheme", "get", "file:///etc/secret", {}, "neither http nor https"},
        RefusedCase{"NoUrl", "get", "secret place", {}, "not valid"}),
    [](const auto& row) { return row.param.name; });

struct BrokenCase {
    const char* name;
    std::string reply; ///< sent before the connection is closed
    bool stalls;       ///< the connection stays open instead
    const char* reason;
};

class Broken : public testing::TestWithParam<BrokenCase> {};

TEST_P(Broken, ReplyFailsTheRequest)
{
    const BrokenCase& row = GetParam();
    ScriptedHttpServer server([&](auto& connection) {
        if (!connection.readRequest() || !connection.send(row.reply)) return;
        if (row.stalls) connection.stall();
    });
    HttpClientUnderTest http({.stallTimeout = std::chrono::seconds(1), .replyLimit = 1000});
    const auto failure = transportFailure(http.send("get", server.url("/a?token=secret")));
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->phase, TransportPhase::exchange);
    EXPECT_EQ(failure->url, server.url("/a"));
    EXPECT_THAT(failure->text,
                testing::StartsWith("Could not complete the exchange with " + server.peer() + ": "));
    EXPECT_THAT(failure->text, HasSubstr(row.reason));
}

INSTANTIATE_TEST_SUITE_P(
    , Broken,
    testing::Values(BrokenCase{"CutInBody", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf", false,
                               "5 bytes remaining"},
                    BrokenCase{"CutInChunk", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n9\r\nhalf",
                               false, "outstanding read data remaining"},
                    BrokenCase{"NoReply", "", false, "Empty reply"},
                    BrokenCase{"NoHttp", "SSH-2.0-server\r\n\r\n", false, "HTTP/0.9"},
                    BrokenCase{"StallBeforeReply", "", true, "too slow"},
                    BrokenCase{"StallInBody", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf", true,
                               "too slow"},
                    BrokenCase{"LongBody", "HTTP/1.1 200 OK\r\n\r\n" + std::string(1000, 'x'), true,
                               "larger than 1000 bytes"},
                    BrokenCase{"LongHeaders", "HTTP/1.1 200 OK\r\nx: " + std::string(1000, 'x') + "\r\n\r\n",
                               true, "larger than 1000 bytes"}),
    [](const auto& row) { return row.param.name; });

TEST(NoConnection, NamesPeerAndReason)
{
    HttpClientUnderTest http;
    const std::string peer = "127.0.0.1:" + std::to_string(closedPort());
    const auto refused = transportFailure(http.send("get", "http://" + peer + "/a?token=secret"));
    ASSERT_TRUE(refused);
    EXPECT_EQ(refused->phase, TransportPhase::connect);
    EXPECT_EQ(refused->url, "http://" + peer + "/a");
    EXPECT_EQ(refused->text, "Could not connect to " + peer + ": Connection refused");

    const auto unknown = transportFailure(http.send("get", "http://nowhere.invalid/"));
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->phase, TransportPhase::connect);
    EXPECT_THAT(unknown->text, testing::StartsWith("Could not connect to nowhere.invalid:80: "));
}

TEST(NoConnection, WhenThePeerDoesNotSpeakTls)
{
    ScriptedHttpServer server([](auto& connection) { connection.send("220 not TLS\r\n"); });
    HttpClientUnderTest http;
    const auto failure = transportFailure(http.send("get", "https://" + server.peer()));
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->phase, TransportPhase::secure);
}

/// Answers the first request on each connection and hangs up at the second, once `read` has taken it.
template <class Read>
ScriptedHttpServer::Script hangsUpAtSecond(Read read)
{
    return [read](ScriptedHttpServer::Connection& connection) {
        if (!connection.readRequest()) return;
        if (connection.number() == 1) return; // a fresh connection is no better
        connection.send(ScriptedHttpServer::reply("first"));
        read(connection);
    };
}

std::ptrdiff_t sentCount(const ScriptedHttpServer& server, const std::string& words)
{
    const auto heads = server.heads();
    return std::count_if(heads.begin(), heads.end(),
                         [&](const auto& head) { return head.find(words) != std::string::npos; });
}

struct ChangeCase {
    const char* name;
    const char* method;
    std::size_t bodyBytes;
    bool readsBody;
    bool atMostOnce = false;
};

class ChangeOnDeadConnection : public testing::TestWithParam<ChangeCase> {};

TEST_P(ChangeOnDeadConnection, IsSentOnce)
{
    const ChangeCase& row = GetParam();
    ScriptedHttpServer server(hangsUpAtSecond([&](auto& connection) {
        if (row.readsBody) {
            connection.readRequest();
        } else {
            connection.readHead();
        }
    }));
    HttpClientUnderTest http;
    bounded(http.send("get", server.url()));
    auto body = row.bodyBytes ? bodyOf(std::string(row.bodyBytes, 'x')) : nullptr;
    auto change = std::make_unique<http::HttpClientRequest>(server.url("/f"), row.method, body);
    change->atMostOnce = row.atMostOnce;
    const auto failure = transportFailure(http.send(std::move(change)));
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->phase, TransportPhase::exchange);
    EXPECT_TRUE(failure->mayHaveHappened);
    EXPECT_EQ(sentCount(server, " /f"), 1);
}

INSTANTIATE_TEST_SUITE_P(, ChangeOnDeadConnection,
                         testing::Values(ChangeCase{"Delete", "delete", 0, true},
                                         ChangeCase{"GetThatChanges", "get", 0, true, true},
                                         ChangeCase{"PutWithoutBody", "put", 0, true},
                                         ChangeCase{"SmallPut", "put", 10, true},
                                         ChangeCase{"SmallPutCutAfterHead", "put", 10, false},
                                         ChangeCase{"LargePut", "put", 20'000'000, true},
                                         ChangeCase{"LargePutCutAfterHead", "put", 20'000'000, false}),
                         [](const auto& row) { return row.param.name; });

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
