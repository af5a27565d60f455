#pragma once

#include "tarn/foundation/detail/SharedFutureState.h"

#include <atomic>
#include <exception>
#include <memory>
#include <type_traits>
#include <utility>

namespace connector {

/// The consumer's handle on a result that arrives later: a value of type T, or an exception.
///
/// A future is consumed once, either by `get` or by `then`. Misuse of the handle is thrown at the call as
/// std::runtime_error; failures of the work itself arrive through `get`. Dropping a future stops nothing: whoever
/// means to, says so with a cast to void.
///
/// Which calls on one handle may overlap: `isValid` with any other; `isReady`, `waitFor`, `cancel` and one `get`
/// with each other; several `then` and moves out of the handle with each other, of which one succeeds. Nothing
/// else: no `then` or move while another thread waits, and no call while the handle is assigned or destroyed.
/// Handles on the two ends of one result, its promise and its future, may always be used at once.
/// @tparam T  movable; or void, for work that yields nothing but its end
template <class T>
class [[nodiscard]] Future {
public:
    /// A handle without a result: every use fails with "Future state isn't valid!".
    Future() = default;

    explicit Future(std::shared_ptr<detail::SharedFutureState<T>> shared)
        : state(std::move(shared)), valid(state != nullptr)
    {
    }

    Future(Future&& other) noexcept { take(other); }

    Future& operator=(Future&& other) noexcept
    {
        if (this != &other) take(other);
        return *this;
    }

    ~Future() { valid = false; }

    /// Blocks until the result is there, then returns the value or rethrows the exception.
    ///
    /// Legal once. A host's delivery thread, which results need in order to arrive, it does not block: see
    /// DeliveryScope.
    /// @throws WouldDeadlock there, when the result is not ready; the handle stays as it was;
    ///         std::runtime_error "Future state isn't valid!" on a handle that was moved from or given to `then`;
    ///         "Future already returned it's value or has an associated continuation." on a second call;
    ///         "Future has been cancelled." after `cancel`.
    T get() { return requireState().get(); }

    /// Runs `fn(Future<T>&&)` once the result is there and returns a future of what it returns, which may be
    /// nothing: Future<void>.
    ///
    /// `fn` runs on the thread that resolves this future, or on this thread before `then` returns if it is
    /// resolved already; the future it receives is ready, so its `get` never blocks. An exception out of `fn`
    /// becomes the returned future's exception. After a cancel of this future `fn` never runs, and the
    /// returned future is never settled: do not wait for it without a limit.
    /// @post this handle is no longer valid
    /// @throws std::runtime_error "Future state isn't valid!" as `get` does;
    ///         "Future already has returned it's value or has an associated continuation." after `get`.
    template <class Fn>
    auto then(Fn fn)
    {
        using R = std::invoke_result_t<Fn&, Future<T>&&>;
        auto source = takeState();
        auto target = std::make_shared<detail::SharedFutureState<R>>();
        source->attach(
            [&] { return std::make_unique<detail::Continuation<T, Fn, R>>(std::move(fn), target); });
        return Future<R>(std::move(target));
    }

    /// Whether this handle has a result to wait for: not moved from, not given to `then`.
    bool isValid() const noexcept { return valid; }

    /// Whether `get` would return at once. @throws as `get` on an invalid handle
    bool isReady() const { return requireState().isReady(); }

    /// Waits at most `duration` for the result; a century or more is for ever. @return whether it is there
    /// @throws as `get` on an invalid handle
    template <class Duration>
    bool waitFor(const Duration& duration) const
    {
        return requireState().waitFor(duration);
    }

    /// Gives up on a pending result: waiters wake, `get` says so, and what arrives later is dropped.
    ///
    /// A result that is there already stays. The remote operation is not stopped: it may still take effect.
    /// @throws as `get` on an invalid handle
    void cancel() { requireState().cancel(); }

private:
    void take(Future& other) noexcept
    {
        bool taken = other.valid.exchange(false);
        state = taken ? std::move(other.state) : nullptr;
        valid = taken;
    }

    std::shared_ptr<detail::SharedFutureState<T>> takeState()
    {
        if (!valid.exchange(false)) throw std::runtime_error(detail::FutureError::futureInvalid);
        return std::move(state);
    }

    detail::SharedFutureState<T>& requireState() const
    {
        if (!valid) throw std::runtime_error(detail::FutureError::futureInvalid);
        return *state;
    }

    std::shared_ptr<detail::SharedFutureState<T>> state;
    std::atomic<bool> valid{false};
};

} // namespace connector

#include "tarn/foundation/detail/Continuation.h"

namespace connector {

/// A future that has failed already, with `error` as its exception.
///
/// The exception is exactly an object of the type given: passing a std::exception_ptr makes `get` throw that
/// pointer itself, not what it points to.
template <class T, class E>
Future<T> makeExceptionalFuture(E error)
{
    auto state = std::make_shared<detail::SharedFutureState<T>>();
    state->setException(std::make_exception_ptr(std::move(error)));
    return Future<T>(std::move(state));
}

/// A future that has failed already, with the exception that `error` points to.
template <class T>
Future<T> makeFailedFuture(std::exception_ptr error)
{
    auto state = std::make_shared<detail::SharedFutureState<T>>();
    state->setException(std::move(error));
    return Future<T>(std::move(state));
}

/// A future of void that is resolved already.
inline Future<void> makeReadyFuture()
{
    auto state = std::make_shared<detail::SharedFutureState<void>>();
    state->setValue({});
    return Future<void>(std::move(state));
}

/// A future that holds `value` already.
template <class T>
Future<T> makeReadyFuture(T value)
{
    auto state = std::make_shared<detail::SharedFutureState<T>>();
    state->setValue(std::move(value));
    return Future<T>(std::move(state));
}

} // namespace connector
