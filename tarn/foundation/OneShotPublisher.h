#pragma once

#include "tarn/foundation/platform/ReactiveStreams.h"

#include <memory>
#include <stdexcept>
#include <utility>

namespace connector::reactive_streams {

/// Publishes one item that is in memory already: the content of an upload as an HTTP body.
///
/// Takes one subscriber and delivers the item and the completion on the thread that first requests, inside
/// that call. Holds no lock: `subscribe`, `request` and `cancel` come from one thread at a time.
template <class T>
class OneShotPublisher : public PublisherAPI<T> {
public:
    explicit OneShotPublisher(T&& item)
        : buffer(std::move(item)), subscription(std::make_shared<OneShotSubscription>(this))
    {
    }

    OneShotPublisher(const OneShotPublisher&) = delete;
    OneShotPublisher& operator=(const OneShotPublisher&) = delete;

    ~OneShotPublisher() override { subscription->publisher = nullptr; }

    /// Resolved with true already.
    Future<bool> completion() override { return makeReadyFuture(true); }

    /// @throws std::invalid_argument "Only one subscription allowed." on a second call
    void subscribe(std::shared_ptr<SubscriberAPI<T>> s) override
    {
        if (subscriber) throw std::invalid_argument("Only one subscription allowed.");
        subscriber = std::move(s);
        subscriber->onSubscribe(subscription);
        deliverIfAsked();
    }

    class OneShotSubscription : public Subscription {
    public:
        explicit OneShotSubscription(OneShotPublisher* owner) : publisher(owner) {}

        void request(std::uint64_t n) override
        {
            requested += n;
            if (publisher) publisher->deliverIfAsked();
        }

        void cancel() override
        {
            cancelled = true;
            if (publisher) publisher->delivered = true;
        }

    private:
        friend class OneShotPublisher;
        OneShotPublisher* publisher; ///< owns this subscription; null once it is gone
        bool cancelled = false;
        std::uint64_t requested = 0;
    };

private:
    void deliverIfAsked()
    {
        if (!subscriber || delivered || subscription->cancelled || subscription->requested == 0) return;
        delivered = true;
        // The subscriber may drop this publisher as soon as it has the item.
        T item = std::move(buffer);
        auto receiver = subscriber;
        receiver->onNext(std::move(item));
        receiver->onComplete();
    }

    T buffer;
    std::shared_ptr<SubscriberAPI<T>> subscriber;
    std::shared_ptr<OneShotSubscription> subscription;
    bool delivered = false;
};

} // namespace connector::reactive_streams
