// A delivery thread does not wait for what it may have to bring itself.
#include "tarn/foundation/WouldDeadlock.h"
#include "Bounded.h"
#include "HttpClientUnderTest.h"
#include "support/ScriptedHttpServer.h"
#include "tarn/foundation/Promise.h"
#include "tarn/foundation/platform/HttpStreamedRequest.h"
#include "tarn/session/SessionMessages.h"
#include "tarnhost/TarnHost.h"

#include <gmock/gmock.h>

#include <atomic>
#include <future>

namespace connector::host::test {
namespace {

using namespace tarn;
using testing::HasSubstr;

TEST(DeliveryThread, RefusesToWaitForWhatItMayHaveToBring)
{
    for (const unsigned threads : {1u, 4u}) {
        std::atomic<int> mayAnswer = 0; // so that no reply is there before somebody waits for it
        ScriptedHttpServer server([&](ScriptedHttpServer::Connection& connection) {
            while (connection.readHead() && eventually([&] { return mayAnswer.exchange(0) > 0; }))
                connection.send(ScriptedHttpServer::reply("<R><Value>v</Value></R>"));
        });
        TarnHost host({.endpoint = server.url(), .threads = threads});
        Future<std::unique_ptr<PingResponse>> second;
        auto text = host.session()->ping(std::make_unique<Ping>()).then([&](auto&&) {
            second = host.session()->ping(std::make_unique<Ping>());
            try {
                second.get();
            } catch (const WouldDeadlock& error) {
                return std::string(error.what());
            }
            return std::string("no error");
        });
        mayAnswer = 1;
        EXPECT_THAT(bounded(std::move(text)),
                    testing::AllOf(HasSubstr("PingResponse"), HasSubstr("the reply to /service/v1/ping")));
        mayAnswer = 1;
        EXPECT_EQ(bounded(std::move(second))->value, "v") << "the future is as good as before";
    }
}

TEST(DeliveryThread, NamesTheRequestWhoseHeadItHandsOut)
{
    std::promise<void> attached; // on a reply that is there a continuation would run here
    ScriptedHttpServer server([&](ScriptedHttpServer::Connection& connection) {
        const bool isAsked = connection.readHead().has_value();
        attached.get_future().wait();
        if (isAsked) connection.send("HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\n");
        connection.stall();
    });
    HttpClientUnderTest http;
    auto request = std::make_unique<http::HttpStreamedRequest>(server.url("/a"), "get", nullptr);
    request->replyBody = http::ReplyBody::content;
    Promise<bool> never;
    auto waiting = http.send(std::move(request)).then([&](Future<HttpClientUnderTest::Response>&&) {
        return never.getFuture().get();
    });
    attached.set_value();
    EXPECT_THAT(failureOf<WouldDeadlock>(std::move(waiting)), HasSubstr("the reply to /a"));
}

} // namespace
} // namespace connector::host::test
