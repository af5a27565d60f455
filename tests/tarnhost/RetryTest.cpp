// What was interrupted is tried again where that is safe, as often as the host or the request says, and no longer
// than anybody waits for it.
#include "Bounded.h"
#include "HttpClientUnderTest.h"
#include "support/ScriptedHttpServer.h"
#include "tarn/foundation/Promise.h"
#include "tarn/foundation/platform/HttpStreamedRequest.h"

#include <gtest/gtest.h>

namespace connector::host::test {
namespace {

HttpOptions retrying(unsigned most, std::chrono::milliseconds pause)
{
    HttpOptions options;
    options.retries = {.most = most, .firstPause = pause};
    return options;
}

TEST(Retry, OfWhatIsSafeAsOftenAsIsSaid)
{
    struct Row {
        const char* method;
        bool secure; ///< which the server is not, so that no request is sent
        unsigned host;
        std::optional<unsigned> request;
        unsigned connections; ///< in the end
    };

    const Row rows[] = {{"get", false, 0, {}, 1}, {"get", false, 2, {}, 3},  {"get", false, 2, 0, 1},
                        {"get", false, 0, 1, 2},  {"put", false, 2, {}, 1},  {"delete", false, 0, 2, 1},
                        {"put", true, 2, {}, 3},  {"delete", true, 0, {}, 1}};
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.method) + (row.secure ? " over TLS" : ""));
        ScriptedHttpServer server([&](auto& connection) {
            if (!row.secure) connection.readHead();
        });
        HttpClientUnderTest http(retrying(row.host, std::chrono::milliseconds(2)));
        const auto url = row.secure ? "https" + server.url().substr(4) : server.url();
        auto body = row.method == std::string("put") ? bodyOf("some") : nullptr;
        auto request = std::make_unique<http::HttpClientRequest>(url, row.method, body);
        if (row.request)
            request->options = std::make_shared<CallOptions>(
                CallOptions{.retries = RetryPolicy{*row.request, std::chrono::milliseconds(2)}});
        EXPECT_TRUE(transportFailure(http.send(std::move(request))));
        EXPECT_EQ(server.connectionCount(), row.connections);
    }
}

TEST(Retry, WaitsNotAtAllForLessThanNothing)
{
    EXPECT_EQ(RetryPolicy::scattered(std::chrono::milliseconds(-500)), std::chrono::milliseconds(0));
}

TEST(Retry, BringsTheReply)
{
    ScriptedHttpServer server([](auto& connection) {
        connection.readRequest();
        connection.send(connection.number() < 2 ? "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nhalf"
                                                : ScriptedHttpServer::reply("the whole"));
    });
    HttpClientUnderTest http(retrying(2, std::chrono::milliseconds(2)));
    EXPECT_EQ(textOf(*bounded(http.send("get", server.url()))), "the whole");
}

/// What the service has turned away it has not done: also a change may be made again, when it says. What a gateway has
/// answered may have been done.
TEST(Retry, OfWhatWasTurnedAwayNotBeforeItIsTime)
{
    const struct {
        const char* method;
        const char* status;
        std::string retryAfter;
        unsigned most, requests;
        std::chrono::milliseconds least;
    } rows[] = {
        {"get", "429 Too Many Requests", "Retry-After: 1\r\n", 1, 2, std::chrono::seconds(1)},
        {"put", "429 Too Many Requests", "", 2, 2, std::chrono::milliseconds(1)},
        {"delete", "429 Too Many Requests", "Retry-After: 3600\r\n", 2, 1, {}},
        {"get", "429 Too Many Requests", "Retry-After: 9223372036854775807\r\n", 2, 1, {}},
        {"put", "429 Too Many Requests", "", 0, 1, {}},
        {"get", "502 Bad Gateway", "", 1, 2, std::chrono::milliseconds(1)},
        {"get", "503 Service Unavailable", "", 0, 1, {}},
        {"put", "504 Gateway Timeout", "", 2, 1, {}}, // which may have been made
    };

    for (const auto& row : rows) {
        ScriptedHttpServer server([&](auto& connection) {
            connection.readRequest();
            connection.send(connection.number() > 0
                                ? ScriptedHttpServer::reply("done")
                                : std::string("HTTP/1.1 ") + row.status + "\r\nConnection: close\r\n" +
                                      row.retryAfter + "Content-Length: 4\r\n\r\nwait");
        });
        HttpClientUnderTest http(retrying(row.most, std::chrono::milliseconds(2)));
        const auto begun = std::chrono::steady_clock::now();
        const auto body = row.method == std::string("put") ? bodyOf("some") : nullptr;
        auto request = std::make_unique<http::HttpClientRequest>(server.url(), row.method, body);
        EXPECT_EQ(textOf(*bounded(http.send(std::move(request)))), row.requests == 2 ? "done" : "wait");
        EXPECT_EQ(server.connectionCount(), row.requests) << row.method << row.status;
        EXPECT_GE(std::chrono::steady_clock::now() - begun, row.least);
    }
}

TEST(Retry, EndsWithTheHostAndWithTheCancel)
{
    for (const bool stopsHost : {true, false}) {
        Promise<void> cut;
        ScriptedHttpServer server([&](auto&) { cut.setValue({}); });
        HttpClientUnderTest http(retrying(1, std::chrono::hours(1)));
        auto request = std::make_unique<http::HttpStreamedRequest>(server.url(), "get", nullptr);
        std::stop_source stop;
        request->stop = stop.get_token();
        auto reply = http.send(std::move(request));
        bounded(cut.getFuture());
        stopsHost ? http.client->stop() : static_cast<void>(stop.request_stop());
        const auto failure = transportFailure(std::move(reply));
        ASSERT_TRUE(failure);
        EXPECT_EQ(failure->phase == TransportPhase::shutdown, stopsHost);
    }
}

} // namespace
} // namespace connector::host::test
