#pragma once

#include "tarn/foundation/DataBuffer.h"
#include "tarn/foundation/platform/ReactiveStreams.h"

#include <functional>
#include <string_view>
#include <utility>

namespace tarncli {

/// Takes all of a content and hands it to a function, on the delivery threads. What that throws fails the download.
class ContentReceiver : public connector::reactive_streams::SubscriberAPI<connector::common::DataBuffer> {
public:
    explicit ContentReceiver(std::function<void(std::string_view)> taker) : take(std::move(taker)) {}

    void onSubscribe(std::weak_ptr<connector::reactive_streams::Subscription> offered) override
    {
        subscription = std::move(offered);
        if (const auto held = subscription.lock())
            held->request(connector::reactive_streams::unboundedDemand);
    }

    void onNext(connector::common::DataBuffer&& item) override { take(item.bytes()); }

    void onComplete() override {}

    void onError(std::exception_ptr) override {} // the future of the download tells it

    void cancel() override
    {
        if (const auto held = subscription.lock()) held->cancel();
    }

    connector::Future<bool> completion() override { return connector::makeReadyFuture(true); }

private:
    std::function<void(std::string_view)> take;
    std::weak_ptr<connector::reactive_streams::Subscription> subscription;
};

} // namespace tarncli
