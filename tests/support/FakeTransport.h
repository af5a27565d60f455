#pragma once

#include "tarn/foundation/ContentReduction.h"
#include "tarn/foundation/OneShotPublisher.h"
#include "tarn/foundation/Promise.h"
#include "tarn/foundation/platform/Connector.h"
#include "tarn/foundation/platform/HttpClientResponse.h"
#include "tarn/foundation/platform/ServiceProvider.h"

#include <algorithm>
#include <deque>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarntest {

using MessagePtr = std::unique_ptr<connector::Message>;
using Reply = connector::Future<MessagePtr>;

inline connector::http::BodyPublisher bodyOf(std::string_view bytes)
{
    using connector::common::DataBuffer;
    return std::make_shared<connector::reactive_streams::OneShotPublisher<DataBuffer>>(DataBuffer(bytes));
}

/// A message framework without threads: delivers to the providers put into it at once, and holds every HTTP
/// request until the test says how it ends.
class FakeTransport : public connector::Context,
                      public connector::Connector,
                      public std::enable_shared_from_this<FakeTransport> {
public:
    /// Starts `provider` and delivers to it what is sent to `address`.
    void serve(const std::string& address, std::shared_ptr<connector::ServiceProvider> provider)
    {
        provider->start();
        providers[address] = std::move(provider);
    }

    std::shared_ptr<connector::Context> getContext() override { return shared_from_this(); }

    Reply send(MessagePtr&& message, connector::Address&& to) override
    {
        auto found = providers.find(to.getName());
        if (found != providers.end()) return deliver(*found->second, std::move(message));
        held.push_back({describe(dynamic_cast<connector::http::HttpClientRequest&>(*message)), {}});
        return held.back().promise.getFuture();
    }

    std::size_t count() const { return held.size(); }

    /// The request as text: "method url", what it asks of the host, the headers in order of name, and the body
    /// when there is one.
    const std::string& sent(std::size_t index = 0) const { return held.at(index).text; }

    void answer(std::uint16_t status, std::string_view body, std::size_t index = 0)
    {
        held.at(index).promise.setValue(
            std::make_unique<connector::http::HttpClientResponse>(status, bodyOf(body)));
    }

    void answerWith(MessagePtr reply, std::size_t index = 0)
    {
        held.at(index).promise.setValue(std::move(reply));
    }

private:
    struct Held {
        std::string text;
        connector::Promise<MessagePtr> promise;
    };

    Reply deliver(connector::ServiceProvider& provider, MessagePtr&& message)
    {
        return provider.deliver(std::move(message), connector::Address("http"), shared_from_this());
    }

    static std::string describe(connector::http::HttpClientRequest& request)
    {
        std::string text = request.method + " " + request.url + "\n";
        if (request.atMostOnce) text += "at most once\n";
        if (request.replyBody == connector::http::ReplyBody::content) text += "for content\n";
        std::multimap<std::string, std::string> headers(request.headers.begin(), request.headers.end());
        for (const auto& [name, value] : headers)
            text += name + ": " + value + "\n";
        if (request.body) {
            auto content = connector::reactive_streams::reduceContentToDataBuffer(request.body).get();
            text += "\n" + std::string(content.bytes());
        }
        return text;
    }

    std::map<std::string, std::shared_ptr<connector::ServiceProvider>> providers;
    std::deque<Held> held;
};

/// What became of a future: "done", or the text of its exception.
template <class T>
std::string outcomeOf(connector::Future<T>& future)
{
    if (!future.isReady()) return "pending";
    try {
        future.get();
        return "done";
    } catch (const std::exception& error) {
        return error.what();
    }
}

} // namespace tarntest
