#pragma once

#include "tarn/foundation/Promise.h"
#include "tarn/foundation/platform/ReactiveStreams.h"

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace connector::reactive_streams {

/// Calls a function with every value of a stream, on whatever thread the publisher delivers, several at once if the
/// publisher does.
///
/// The mutex is never held while anything outside is called: callback, subscription, or waiters of
/// `completion`. A value that arrives after the end or a cancel is ignored.
template <class T>
class CallbackSubscriber : public SubscriberAPI<T>,
                           public std::enable_shared_from_this<CallbackSubscriber<T>> {
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
        auto alive = this->weak_from_this().lock(); // a callback that cancels may drop the last other owner
        if (!enter()) return;
        try {
            callback(std::move(value));
        } catch (...) {
            leave();
            throw;
        }
        leave();
    }

    void onError(std::exception_ptr error) override
    {
        if (finish()) ended.setException(std::move(error));
    }

    /// Ends the subscription. Once it has returned, no callback runs and none will, whatever the publisher does, so
    /// what the callback refers to may be destroyed: it waits for those that run on other threads. Called inside
    /// a callback it does not wait, since that would be for itself.
    void cancel() override
    {
        if (finish()) {
            ended.setValue(false);
            if (auto held = lockSubscription()) held->cancel();
        }
        std::unique_lock lock(mutex);
        const auto self = std::this_thread::get_id();
        if (std::find(running.begin(), running.end(), self) != running.end()) return;
        idle.wait(lock, [this] { return running.empty(); });
    }

private:
    /// @return whether this call ended the stream
    bool finish()
    {
        std::lock_guard lock(mutex);
        return !std::exchange(done, true);
    }

    std::shared_ptr<Subscription> lockSubscription()
    {
        std::lock_guard lock(mutex);
        return subscription.lock();
    }

    /// @return whether the callback may run; `leave` then follows it
    bool enter()
    {
        std::lock_guard lock(mutex);
        if (!done) running.push_back(std::this_thread::get_id());
        return !done;
    }

    void leave()
    {
        std::lock_guard lock(mutex);
        running.erase(std::find(running.begin(), running.end(), std::this_thread::get_id()));
        // Under the lock: whoever waits may destroy this subscriber as soon as it can see that nothing runs.
        idle.notify_all();
    }

    std::mutex mutex; ///< guards `subscription`, `done`, `running` and the hand-out of the future of `ended`
    std::condition_variable idle;
    Promise<bool> ended;
    std::function<void(T&&)> callback;
    std::weak_ptr<Subscription> subscription;
    std::vector<std::thread::id> running; ///< one entry for each callback that has not returned
    bool done = false;
};

} // namespace connector::reactive_streams
