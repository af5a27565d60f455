#pragma once

#include "tarn/foundation/Export.h"
#include "tarn/foundation/FutureWatch.h"

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <type_traits>
#include <typeinfo>
#include <utility>
#include <variant>

namespace connector {

template <class T>
class Future;

namespace detail {

/// How far a result has come. Cancelled is final: a later resolution is dropped and no continuation runs.
enum class FutureStatus : std::uint32_t { pending = 0, value = 1, exception = 2, cancelled = 3 };

namespace FutureError {
inline constexpr const char* cancelled = "Future has been cancelled.";
inline constexpr const char* invalidState = "Invalid Future state reached.";
inline constexpr const char* alreadyResolved = "Promise already resolved.";
inline constexpr const char* futureInvalid = "Future state isn't valid!";
inline constexpr const char* promiseInvalid = "Promise state isn't valid!";
inline constexpr const char* getConsumed =
    "Future already returned it's value or has an associated continuation.";
inline constexpr const char* thenConsumed =
    "Future already has returned it's value or has an associated continuation.";
inline constexpr const char* futureTaken = "Promise already returned a future.";
inline constexpr const char* promiseDestroyed = "Promise destroyed before it provided a value.";
} // namespace FutureError

/// What a state of T holds as its value: T itself, or for void a value that says nothing.
template <class T>
using ValueOf = std::conditional_t<std::is_void_v<T>, std::monostate, T>;

/// The exception of a promise that died without a result.
///
/// Made once, so that a promise can die when there is no memory left, and never destroyed, so that one may die
/// while the process ends.
inline const std::exception_ptr& promiseDestroyedError()
{
    static const auto& error =
        *new std::exception_ptr(std::make_exception_ptr(std::runtime_error(FutureError::promiseDestroyed)));
    return error;
}

/// What runs once a SharedFutureState<T> is resolved.
template <class T>
class ContinuationBase {
public:
    virtual ~ContinuationBase() = default;
    virtual void run(Future<T>&& future) = 0;
};

template <class T, class Fn, class R>
class Continuation;

/// @throws WouldDeadlock on a thread with a DeliveryScope
TARN_API void requireMayBlock(const std::type_info& awaited);

/// The state that a Promise (or a continuation) shares with the Future made from it.
///
/// Always owned by a shared_ptr. Waiters are woken and continuations run after the mutex is released, on the
/// thread that resolved the state, or on the thread that attached the continuation to a resolved state.
/// Settling needs no memory: the result has its place in the state, so that a failure for want of memory reaches
/// whoever waits.
template <class T>
class SharedFutureState : public std::enable_shared_from_this<SharedFutureState<T>> {
public:
    using Lock = std::unique_lock<std::mutex>;

    SharedFutureState() = default;
    SharedFutureState(const SharedFutureState&) = delete;
    SharedFutureState& operator=(const SharedFutureState&) = delete;

    ~SharedFutureState()
    {
        const auto* failure = std::get_if<cell(FutureStatus::exception)>(&result);
        if (failure && *failure) reportUnobserved(*failure); // `get` would have taken it
    }

    void setValue(ValueOf<T>&& value)
    {
        Lock lock(mutex);
        resolve<FutureStatus::value>(std::move(lock), std::move(value));
    }

    void setException(std::exception_ptr error)
    {
        Lock lock(mutex);
        resolve<FutureStatus::exception>(std::move(lock), std::move(error));
    }

    /// Fails the state unless it has been resolved or cancelled already.
    void failIfPending(std::exception_ptr error)
    {
        Lock lock(mutex);
        if (status != FutureStatus::pending) return;
        resolve<FutureStatus::exception>(std::move(lock), std::move(error));
    }

    /// The same for a promise that dies. One whose future nobody ever had has nobody to tell.
    void failAbandoned() noexcept
    {
        Lock lock(mutex);
        if (status != FutureStatus::pending || !futureRetrieved) return;
        resolve<FutureStatus::exception>(std::move(lock), promiseDestroyedError());
        reportDropped(typeid(T));
    }

    /// Pending becomes cancelled and waiters wake; every other status stays as it is.
    void cancel()
    {
        Lock lock(mutex);
        if (status != FutureStatus::pending) return;
        status = FutureStatus::cancelled;
        notifyResolved(std::move(lock));
    }

    Future<T> takeFuture();

    T get()
    {
        Lock lock(mutex);
        if (valueRetrieved || continuation) throw std::runtime_error(FutureError::getConsumed);
        if (status == FutureStatus::pending) requireMayBlock(typeid(T));
        valueRetrieved = true;
        condition.wait(lock, [this] { return status != FutureStatus::pending; });
        switch (status) {
        case FutureStatus::value:
            if constexpr (std::is_void_v<T>) {
                return;
            } else {
                return std::move(std::get<cell(FutureStatus::value)>(result));
            }
        case FutureStatus::exception: {
            auto error = std::exchange(std::get<cell(FutureStatus::exception)>(result), nullptr);
            lock.unlock();
            std::rethrow_exception(std::move(error));
        }
        case FutureStatus::cancelled:
            throw std::runtime_error(FutureError::cancelled);
        default:
            throw std::runtime_error(FutureError::invalidState);
        }
    }

    /// Attaches what `make` returns; runs it at once when the state is resolved already.
    template <class Make>
    void attach(Make&& make)
    {
        Lock lock(mutex);
        if (valueRetrieved || continuation) throw std::runtime_error(FutureError::thenConsumed);
        continuation = std::forward<Make>(make)();
        notifyResolved(std::move(lock));
    }

    bool isReady() const
    {
        Lock lock(mutex);
        return status != FutureStatus::pending;
    }

    template <class Rep, class Period>
    bool waitFor(const std::chrono::duration<Rep, Period>& duration)
    {
        Lock lock(mutex);
        auto settled = [this] { return status != FutureStatus::pending; };
        // The clock overflows when a longer time is added to now, and the wait would be over at once.
        constexpr std::chrono::duration<double> century = std::chrono::hours(24 * 36'525);
        if (std::chrono::duration<double>(duration) < century) return waitUpTo(lock, duration, settled);
        if (!settled()) requireMayBlock(typeid(T));
        condition.wait(lock, settled);
        return true;
    }

private:
    template <class Duration, class Settled>
    bool waitUpTo(Lock& lock, const Duration& duration, Settled settled)
    {
        return duration > Duration::zero() ? condition.wait_for(lock, duration, settled) : settled();
    }

    /// Which alternative of `result` a status tells of.
    static constexpr std::size_t cell(FutureStatus told) { return static_cast<std::size_t>(told); }

    template <FutureStatus resolved, class Outcome>
    void resolve(Lock lock, Outcome&& outcome)
    {
        if (status == FutureStatus::cancelled) return;
        if (status != FutureStatus::pending) throw std::runtime_error(FutureError::alreadyResolved);
        result.template emplace<cell(resolved)>(std::forward<Outcome>(outcome));
        status = resolved;
        notifyResolved(std::move(lock));
    }

    void notifyResolved(Lock lock);

    mutable std::mutex mutex; ///< guards every member below
    std::condition_variable condition;
    std::variant<std::monostate, ValueOf<T>, std::exception_ptr> result; ///< by the number of the status
    std::unique_ptr<ContinuationBase<T>> continuation;
    FutureStatus status = FutureStatus::pending;
    bool futureRetrieved = false;
    bool valueRetrieved = false;
};

} // namespace detail
} // namespace connector
