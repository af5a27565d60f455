#pragma once

#include "tarn/foundation/Export.h"
#include "tarn/foundation/Future.h"

#include <cstdint>
#include <exception>
#include <memory>

/// Streams of values between a publisher and one subscriber: any number of `onNext`, then at most one
/// `onComplete` or `onError`, and only as many values as the subscriber has requested.
namespace connector::reactive_streams {

/// The demand for `request` that never runs out.
inline constexpr std::uint64_t unboundedDemand = static_cast<std::uint64_t>(-1);

/// A subscriber's way back to its publisher.
class TARN_API Subscription {
public:
    virtual ~Subscription() = default;
    /// Asks for `n` more values. The publisher may deliver them before this returns.
    virtual void request(std::uint64_t n) = 0;
    /// Asks for no more values. Some that are under way may still arrive.
    virtual void cancel() = 0;
};

/// The base of all subscribers, whatever they receive.
class TARN_API Subscriber {
public:
    virtual ~Subscriber() = default;
    /// The first signal: how to ask for values. The publisher owns the subscription.
    virtual void onSubscribe(std::weak_ptr<Subscription> subscription) = 0;
    /// The last signal of a stream that ended well.
    virtual void onComplete() = 0;
    /// True once the stream has completed, false once it was cancelled.
    virtual Future<bool> completion() = 0;
};

/// A subscriber of values of type T.
template <class T>
class SubscriberAPI : public Subscriber {
public:
    virtual void onNext(T&& value) = 0;
    /// The last signal of a stream that failed.
    virtual void onError(std::exception_ptr error) = 0;
    /// Ends the subscription from this side.
    virtual void cancel() = 0;
};

/// The base of all publishers, whatever they send.
class TARN_API Publisher {
public:
    virtual ~Publisher() = default;
    /// True once the publisher has nothing left to do.
    virtual Future<bool> completion() = 0;
};

/// A publisher of values of type T.
template <class T>
class PublisherAPI : public Publisher {
public:
    /// Attaches `subscriber` and calls its `onSubscribe` before returning.
    virtual void subscribe(std::shared_ptr<SubscriberAPI<T>> subscriber) = 0;
};

/// Ends a subscription, at the latest when it is destroyed.
class TARN_API Canceller {
public:
    virtual ~Canceller() = default;
    /// May be called any number of times.
    virtual void cancel() = 0;
};

} // namespace connector::reactive_streams
