#pragma once

#include "tarn/foundation/DataBuffer.h"
#include "tarn/foundation/Promise.h"
#include "tarn/foundation/platform/ReactiveStreams.h"

#include <cstdint>
#include <memory>

namespace tarntest {

/// Publishes when the test says so.
class ManualPublisher : public connector::reactive_streams::PublisherAPI<connector::common::DataBuffer> {
public:
    using Subscriber = connector::reactive_streams::SubscriberAPI<connector::common::DataBuffer>;

    struct Link : connector::reactive_streams::Subscription {
        void request(std::uint64_t n) override { requested = n; }

        void cancel() override { cancelled = true; }

        std::uint64_t requested = 0;
        bool cancelled = false;
    };

    connector::Future<bool> completion() override { return connector::makeReadyFuture(true); }

    void subscribe(std::shared_ptr<Subscriber> added) override
    {
        subscriber = added;
        subscriber->onSubscribe(link);
    }

    std::shared_ptr<Subscriber> subscriber;
    std::shared_ptr<Link> link = std::make_shared<Link>();
};

} // namespace tarntest
