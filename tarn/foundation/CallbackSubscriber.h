#pragma once

#include "tarn/foundation/Promise.h"
#include "tarn/foundation/platform/ReactiveStreams.h"

#include <functional>
#include <memory>
#include <mutex>
#include <utility>

namespace connector::reactive_streams {

/// Calls a function with every value of a stream, on whatever thread the publisher delivers.
///
/// The mutex is never held while anything outside is called: callback, subscription, or waiters of
/// `completion`. A value that arrives after the end or a cancel is ignored.
template <class T>
class CallbackSubscriber : public SubscriberAPI<T> {
public:
    explicit CallbackSubscriber(std::function<void(T&&)> onValue) : callback(std::move(onValue)) {}

    void onSubscribe(std::weak_ptr<Subscription> offered) override
    {
        std::shared_ptr<Subscription> held;
        {
            std::lock_guard lock(mutex);
            subscription = std::move(offered);
            if (!done) held = subscription.lock();
        }
        if (held) held->request(unboundedDemand);
    }

    void onComplete() override
    {
        if (finish()) ended.setValue(true);
    }

    /// True once the stream has completed, false once it was cancelled, the error of a stream that failed.
    /// @throws std::runtime_error "Promise already returned a future." on a second call
    Future<bool> completion() override
    {
        std::lock_guard lock(mutex);
        return ended.getFuture();
    }

    /// Lets through what the callback throws; a missing callback throws std::bad_function_call.
    void onNext(T&& value) override
    {
        {
            std::lock_guard lock(mutex);
            if (done) return;
        }
        callback(std::move(value));
    }

    void onError(std::exception_ptr error) override
    {
        if (finish()) ended.setException(std::move(error));
    }

    void cancel() override
    {
        if (!finish()) return;
        ended.setValue(false);
        std::shared_ptr<Subscription> held;
        {
            std::lock_guard lock(mutex);
            held = subscription.lock();
        }
        if (held) held->cancel();
    }

private:
    /// @return whether this call ended the stream
    bool finish()
    {
        std::lock_guard lock(mutex);
        return !std::exchange(done, true);
    }

    std::mutex mutex; ///< guards `subscription`, `done` and the hand-out of the future of `ended`
    Promise<bool> ended;
    std::function<void(T&&)> callback;
    std::weak_ptr<Subscription> subscription;
    bool done = false;
};

} // namespace connector::reactive_streams
