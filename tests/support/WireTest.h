#pragma once

#include "support/FakeTransport.h"
#include "tarn/session/TarnSessionClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

/// Every operation of a client, from the call to the literal HTTP request and back.
namespace tarntest {

/// A client of type Client over a provider of type Provider, in a session of alice.
template <class Client, class Provider>
struct WireBench {
    std::shared_ptr<FakeTransport> transport = std::make_shared<FakeTransport>();
    std::shared_ptr<connector::tarn::TarnSession> session = makeSession();
    std::shared_ptr<Client> client;

    WireBench()
    {
        transport->serve("service", std::make_shared<Provider>(nullptr, "http://host"));
        client = std::make_shared<Client>(session, transport, connector::Address("service"));
    }

    std::shared_ptr<connector::tarn::TarnSession> makeSession()
    {
        auto made = std::make_shared<connector::tarn::TarnSessionClient>(
            transport, connector::Address("session"), "app 1.0", "test", "de_DE");
        made->setUser(u"alice");
        made->setSessionId("S1");
        return made;
    }
};

/// Asks later how an operation ended: see outcomeOf.
using Outcome = std::function<std::string()>;

template <class Response>
Outcome watch(connector::Future<Response>&& future)
{
    auto held = std::make_shared<connector::Future<Response>>(std::move(future));
    return [held] { return outcomeOf(*held); };
}

template <class Client>
struct WireCase {
    std::string name;
    std::function<Outcome(Client&)> call;
    std::string request;              ///< what must leave, as FakeTransport describes it
    std::string success = "<Reply/>"; ///< the least reply with which it succeeds
    bool readsXml = true;             ///< false: any body of a 200 is a success
};

template <class Client>
void PrintTo(const WireCase<Client>& wireCase, std::ostream* out)
{
    *out << wireCase.name;
}

template <class Case>
std::string caseName(const testing::TestParamInfo<Case>& info)
{
    return info.param.name;
}

/// Sends exactly the request of the case, and ends in every way an exchange can end.
template <class Bench, class Client>
void expectExchange(const WireCase<Client>& wireCase)
{
    struct Ending {
        const char* what;
        std::function<void(FakeTransport&)> end;
        std::string outcome;
    };

    auto answered = [](std::uint16_t status, std::string body) {
        return [=](FakeTransport& transport) { transport.answer(status, body); };
    };
    const std::vector<Ending> endings = {
        {"success", answered(200, wireCase.success), "done"},
        {"success that is no XML", answered(200, "<unclosed>"),
         wireCase.readsXml ? "TARN error: <unclosed>" : "done"},
        {"success without a body", answered(200, ""), wireCase.readsXml ? "TARN error: " : "done"},
        {"not found, body unread", answered(404, "<Error><code>other</code></Error>"), "File not found."},
        {"refusal", answered(403, "<Error><code>No &lt;way&gt;.</code></Error>"), "No <way>."},
        {"created is not success", answered(201, "<Reply/>"), "Unknown error."},
        {"two codes", answered(500, "<E><code>a</code><code>b</code></E>"), "Unknown error."},
        {"proxy page", answered(503, "<html><p>down</html>"), "TARN error: <html><p>down</html>"},
        {"lost connection", [](FakeTransport& transport) { transport.fail("Connection reset"); },
         "Connection reset"},
        {"null reply", [](FakeTransport& transport) { transport.answerWith(nullptr); }, "Unknown error."},
        {"reply of another class",
         [](FakeTransport& transport) { transport.answerWith(std::make_unique<connector::Message>()); },
         "Unable to cast response message type: connector::Message to connector::http::HttpClientResponse"},
    };
    for (const auto& ending : endings) {
        SCOPED_TRACE(ending.what);
        Bench bench;
        auto outcome = wireCase.call(*bench.client);
        ASSERT_EQ(bench.transport->count(), 1u);
        EXPECT_EQ(bench.transport->sent(), wireCase.request);
        EXPECT_EQ(outcome(), "pending");
        ending.end(*bench.transport);
        EXPECT_EQ(outcome(), ending.outcome);
    }
}

/// Refuses to send without a session or a connector.
template <class Client>
void expectRefusal(const WireCase<Client>& wireCase)
{
    auto transport = std::make_shared<FakeTransport>();
    auto session = std::make_shared<connector::tarn::TarnSessionClient>(
        transport, connector::Address("session"), "", "", "");
    Client withoutSession(nullptr, transport, connector::Address("service"));
    Client withoutConnector(session, nullptr, connector::Address("service"));
    EXPECT_EQ(wireCase.call(withoutSession)(), "Null request, session, or context");
    EXPECT_EQ(wireCase.call(withoutConnector)(), "Null request, session, or context");
    EXPECT_EQ(transport->count(), 0u);
}

/// A request of type Request with path and bucket.
template <class Request>
std::unique_ptr<Request> located(const std::u16string& path, const std::u16string& bucket = {})
{
    auto request = std::make_unique<Request>();
    request->path = path;
    request->bucket = bucket;
    return request;
}

} // namespace tarntest
