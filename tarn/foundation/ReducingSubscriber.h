#pragma once

#include "tarn/foundation/Promise.h"
#include "tarn/foundation/platform/ReactiveStreams.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace connector::reactive_streams {

/// Folds all items of a stream into one value, delivered through a future.
///
/// Signals may come from any thread, one after the other or at once: a mutex puts them in order, and it is
/// released before anything outside is called, except the reducer, which must not call back. Asks for
/// everything at once. What arrives after the end, an error or a cancel is ignored; the result is settled
/// once, on the thread of the signal that ended the stream.
template <class Item, class Result>
class ReducingSubscriber : public SubscriberAPI<Item>,
                           public std::enable_shared_from_this<ReducingSubscriber<Item, Result>> {
public:
    /// Takes the next item and what has been gathered so far, returns what is gathered now.
    using Reducer = std::function<Result(Item&& item, Result&& accumulator)>;

    ReducingSubscriber(Result initial, Reducer reduce)
        : reducer(std::move(reduce)), initialValue(std::move(initial)), accumulator(initialValue)
    {
    }

    /// The result: everything folded, the stream's error, what the reducer threw, or a std::runtime_error
    /// "Content stream cancelled." after a cancel. Legal once.
    Future<Result> getFuture() { return promise.getFuture(); }

    /// @throws std::runtime_error "Subscription went away!" when the publisher has dropped the subscription
    void onSubscribe(std::weak_ptr<Subscription> offered) override
    {
        std::shared_ptr<Subscription> held;
        {
            std::lock_guard lock(mutex);
            subscription = std::move(offered);
            held = subscription.lock();
        }
        if (!held) throw std::runtime_error("Subscription went away!");
        held->request(unboundedDemand);
    }

    void onNext(Item&& item) override
    {
        std::unique_lock lock(mutex);
        if (state != State::active) return;
        try {
            accumulator = reducer(std::move(item), std::move(accumulator));
        } catch (...) {
            finishCancelled(std::move(lock), std::current_exception());
        }
    }

    void onComplete() override
    {
        std::unique_lock lock(mutex);
        if (state != State::active) return;
        state = State::completed;
        Result gathered = std::move(accumulator);
        auto alive = keepAlive();
        lock.unlock();
        promise.setValue(std::move(gathered));
        ended.setValue(true);
    }

    void onError(std::exception_ptr error) override
    {
        std::unique_lock lock(mutex);
        if (state != State::active) return;
        state = State::failed;
        failure = error;
        auto alive = keepAlive();
        lock.unlock();
        promise.setException(error);
        ended.setException(error);
    }

    void cancel() override
    {
        std::unique_lock lock(mutex);
        if (state != State::active) return;
        finishCancelled(std::move(lock), cancelledError());
    }

    /// True once the stream has completed, false once it was cancelled; a stream that fails while the future
    /// is pending fails it with its error. After a failure the future holds the stream's std::exception_ptr
    /// itself as its exception: catch std::exception_ptr to see it. While the stream is active, legal once.
    Future<bool> completion() override
    {
        std::lock_guard lock(mutex);
        switch (state) {
        case State::completed:
            return makeReadyFuture(true);
        case State::cancelled:
            return makeReadyFuture(false);
        case State::failed:
            return makeExceptionalFuture<bool>(failure);
        case State::active:
            break;
        }
        return ended.getFuture();
    }

private:
    enum class State : std::uint32_t { active = 0, completed = 1, cancelled = 2, failed = 3 };

    /// When there is no memory for the error, the lack of it becomes the error: a cancel always settles the result.
    static std::exception_ptr cancelledError() noexcept
    {
        try {
            return std::make_exception_ptr(std::runtime_error("Content stream cancelled."));
        } catch (...) {
            return std::current_exception();
        }
    }

    /// Whoever is told of the end may drop the last owner of this subscriber, before everybody has been told.
    std::shared_ptr<void> keepAlive() { return this->weak_from_this().lock(); }

    void finishCancelled(std::unique_lock<std::mutex> lock, std::exception_ptr reason)
    {
        state = State::cancelled;
        auto held = subscription.lock();
        auto alive = keepAlive();
        lock.unlock();
        if (held) held->cancel();
        promise.setException(std::move(reason));
        ended.setValue(false);
    }

    /// Guards everything below except the two promises, which only the ending signal settles.
    std::mutex mutex;
    Promise<Result> promise;
    Reducer reducer;
    Result initialValue;
    Result accumulator;
    std::weak_ptr<Subscription> subscription;
    State state = State::active;
    std::exception_ptr failure;
    Promise<bool> ended;
};

} // namespace connector::reactive_streams
