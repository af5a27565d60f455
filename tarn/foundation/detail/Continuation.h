#pragma once

#include "tarn/foundation/Future.h"

namespace connector::detail {

/// Turns the result of a SharedFutureState<T> into that of a SharedFutureState<R> by calling `fn`.
///
/// Whatever `fn` throws becomes the target's exception, so nothing escapes into the resolving thread. A
/// target that was cancelled meanwhile drops the outcome.
template <class T, class Fn, class R>
class Continuation : public ContinuationBase<T> {
public:
    Continuation(Fn callable, std::shared_ptr<SharedFutureState<R>> resolved)
        : fn(std::move(callable)), target(std::move(resolved))
    {
    }

    void run(Future<T>&& future) override
    {
        std::exception_ptr failure;
        try {
            if constexpr (std::is_void_v<R>) {
                fn(std::move(future));
                target->setValue({});
            } else {
                target->setValue(fn(std::move(future)));
            }
            return;
        } catch (...) {
            failure = std::current_exception();
        }
        // Handed over after the catch, so that whoever waits for it is the last to release it.
        target->failIfPending(std::move(failure));
    }

private:
    Fn fn;
    std::shared_ptr<SharedFutureState<R>> target;
};

template <class T>
Future<T> SharedFutureState<T>::takeFuture()
{
    Lock lock(mutex);
    if (futureRetrieved) throw std::runtime_error(FutureError::futureTaken);
    futureRetrieved = true;
    return Future<T>(this->shared_from_this());
}

template <class T>
void SharedFutureState<T>::notifyResolved(Lock lock)
{
    if (continuation && (status == FutureStatus::value || status == FutureStatus::exception)) {
        // The continuation reads the result through a handle of its own, so its get() must be legal again.
        futureRetrieved = false;
        valueRetrieved = false;
        auto ready = std::move(continuation);
        lock.unlock();
        auto self = this->shared_from_this(); // the continuation may drop the last other owner
        ready->run(Future<T>(self));
        ready.reset();
        condition.notify_all();
        return;
    }
    lock.unlock();
    condition.notify_all();
}

} // namespace connector::detail
