#pragma once

#include "support/FakeTransport.h"
#include "tarn/foundation/platform/TextConversion.h"
#include "tarn/session/TarnSessionClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

/// Every operation of a client, from the call to the literal HTTP request, and from the reply to the response.
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

inline std::string asText(const std::u16string& text)
{
    return fl::i18n::to_string(text, fl::i18n::codecvt_ustring_to_string("UTF-8", true));
}

template <class Value>
const Value& asText(const Value& value)
{
    return value;
}

/// The values in order, separated by '|'.
template <class... Values>
std::string fields(const Values&... values)
{
    std::ostringstream out;
    out << std::boolalpha;
    const char* separator = "";
    ((out << separator << asText(values), separator = "|"), ...);
    return out.str();
}

/// A response as text. Each area says, in the namespace of its messages, how its own show; the others say nothing.
inline std::string show(const connector::Message&)
{
    return "done";
}

/// Asks later how an operation ended: "pending", its response as text, or the text of its exception.
using Outcome = std::function<std::string()>;

template <class Response>
Outcome watch(connector::Future<std::unique_ptr<Response>>&& future)
{
    auto held = std::make_shared<connector::Future<std::unique_ptr<Response>>>(std::move(future));
    return [held]() -> std::string {
        if (!held->isReady()) return "pending";
        try {
            return show(*held->get());
        } catch (const std::exception& error) {
            return error.what();
        }
    };
}

/// One operation: the request that must leave, as FakeTransport describes it, and what is read from a reply.
template <class Client>
struct WireCase {
    std::string name;
    std::function<Outcome(Client&)> call;
    std::string request;
    std::string reply = "<Reply/>";
    std::string outcome = "done";
};

/// Each case sends exactly its request and reads its reply; the first also hears of replies that are none.
template <class Bench, class Client>
void expectExchanges(const std::vector<WireCase<Client>>& cases)
{
    for (const auto& wireCase : cases) {
        SCOPED_TRACE(wireCase.name);
        Bench bench;
        const auto outcome = wireCase.call(*bench.client);
        ASSERT_EQ(bench.transport->count(), 1u);
        EXPECT_EQ(bench.transport->sent(), wireCase.request);
        EXPECT_EQ(outcome(), "pending");
        bench.transport->answer(200, wireCase.reply);
        EXPECT_EQ(outcome(), wireCase.outcome);
    }
    for (const bool isNull : {true, false}) {
        Bench bench;
        const auto outcome = cases.front().call(*bench.client);
        bench.transport->answerWith(isNull ? nullptr : std::make_unique<connector::Message>());
        EXPECT_EQ(outcome(), isNull ? "Unknown error."
                                    : "Unable to cast response message type: connector::Message to "
                                      "connector::http::HttpClientResponse");
    }
}

/// Each case refuses to send without a session or a connector.
template <class Client>
void expectRefusals(const std::vector<WireCase<Client>>& cases)
{
    auto transport = std::make_shared<FakeTransport>();
    auto session = std::make_shared<connector::tarn::TarnSessionClient>(
        transport, connector::Address("session"), "", "", "");
    Client withoutSession(nullptr, transport, connector::Address("service"));
    Client withoutConnector(session, nullptr, connector::Address("service"));
    for (const auto& wireCase : cases) {
        EXPECT_EQ(wireCase.call(withoutSession)(), "Null request, session, or context") << wireCase.name;
        EXPECT_EQ(wireCase.call(withoutConnector)(), "Null request, session, or context") << wireCase.name;
    }
    EXPECT_EQ(transport->count(), 0u);
}

/// A reply, and what an operation makes of it.
template <class Client>
struct Reading {
    std::function<Outcome(Client&)> call;
    std::string reply;
    std::string outcome;
};

template <class Bench, class Client>
void expectReadings(const std::vector<Reading<Client>>& readings)
{
    for (const auto& reading : readings) {
        Bench bench;
        auto outcome = reading.call(*bench.client);
        bench.transport->answer(200, reading.reply);
        EXPECT_EQ(outcome(), reading.outcome) << reading.reply;
    }
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
