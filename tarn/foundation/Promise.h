#pragma once

#include "tarn/foundation/Future.h"

namespace connector {

/// The producer's handle on a result: sets it once, from any thread. What that needs of memory the constructor
/// takes, so a promise can always be kept or broken.
///
/// A promise that dies without a result fails its future with "Promise destroyed before it provided a
/// value.", so that nobody waits for ever.
template <class T>
class Promise {
public:
    /// @throws std::bad_alloc
    Promise() : state(std::make_shared<detail::SharedFutureState<T>>()), valid(true)
    {
        detail::promiseDestroyedError(); // made here, so that the destructor finds it there
    }

    Promise(Promise&& other) noexcept { take(other); }

    Promise& operator=(Promise&& other) noexcept
    {
        if (this != &other) {
            abandon();
            take(other);
        }
        return *this;
    }

    ~Promise() { abandon(); }

    /// The future of this promise. Legal once.
    /// @throws std::runtime_error "Promise state isn't valid!" when moved from,
    ///         "Promise already returned a future." on a second call
    Future<T> getFuture() { return requireState()->takeFuture(); }

    /// Resolves the future with a value. Waiters wake and a continuation runs on this thread before it
    /// returns. After a cancel the value is dropped without an error.
    /// @throws std::runtime_error "Promise state isn't valid!" when moved from,
    ///         "Promise already resolved." on a second resolution
    void setValue(detail::ValueOf<T>&& value) { requireState()->setValue(std::move(value)); }

    /// `setValue` of a promise of void: there is nothing to hand over.
    void setValue() requires std::is_void_v<T> { requireState()->setValue({}); }

    /// Resolves the future with an exception; otherwise as `setValue`.
    void setException(std::exception_ptr error) { requireState()->setException(std::move(error)); }

private:
    void take(Promise& other) noexcept
    {
        bool taken = other.valid.exchange(false);
        state = taken ? std::move(other.state) : nullptr;
        valid = taken;
    }

    void abandon() noexcept
    {
        if (!valid.exchange(false)) return;
        state->failAbandoned();
    }

    // A copy: whoever waits for the result may destroy this promise before the waking call has returned.
    std::shared_ptr<detail::SharedFutureState<T>> requireState() const
    {
        if (!valid) throw std::runtime_error(detail::FutureError::promiseInvalid);
        return state;
    }

    std::shared_ptr<detail::SharedFutureState<T>> state;
    std::atomic<bool> valid{false};
};

} // namespace connector
