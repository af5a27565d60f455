#pragma once

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <stdexcept>
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

/// What runs once a SharedFutureState<T> is resolved.
template <class T>
class ContinuationBase {
public:
    virtual ~ContinuationBase() = default;
    virtual void run(Future<T>&& future) = 0;
};

template <class T, class Fn, class R>
class Continuation;

/// The state that a Promise (or a continuation) shares with the Future made from it.
///
/// Always owned by a shared_ptr. Waiters are woken and continuations run after the mutex is released, on the
/// thread that resolved the state, or on the thread that attached the continuation to a resolved state.
template <class T>
class SharedFutureState : public std::enable_shared_from_this<SharedFutureState<T>> {
public:
    using Lock = std::unique_lock<std::mutex>;

    void setValue(T&& value)
    {
        Lock lock(mutex);
        resolve(std::move(lock), FutureStatus::value, std::in_place_index<0>, std::move(value));
    }

    void setException(std::exception_ptr error)
    {
        Lock lock(mutex);
        resolve(std::move(lock), FutureStatus::exception, std::in_place_index<1>, std::move(error));
    }

    /// Fails the state unless it has been resolved or cancelled already.
    void failIfPending(std::exception_ptr error)
    {
        Lock lock(mutex);
        if (status != FutureStatus::pending) return;
        resolve(std::move(lock), FutureStatus::exception, std::in_place_index<1>, std::move(error));
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
        valueRetrieved = true;
        condition.wait(lock, [this] { return status != FutureStatus::pending; });
        switch (status) {
        case FutureStatus::value:
            return std::move(std::get<0>(*result));
        case FutureStatus::exception: {
            auto error = std::exchange(std::get<1>(*result), nullptr);
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

    template <class Duration>
    bool waitFor(const Duration& duration)
    {
        Lock lock(mutex);
        return condition.wait_for(lock, duration, [this] { return status != FutureStatus::pending; });
    }

private:
    template <std::size_t Index, class Result>
    void resolve(Lock lock, FutureStatus resolved, std::in_place_index_t<Index> index, Result&& outcome)
    {
        if (status == FutureStatus::cancelled) return;
        if (status != FutureStatus::pending) throw std::runtime_error(FutureError::alreadyResolved);
        result = std::make_unique<Cell>(index, std::forward<Result>(outcome));
        status = resolved;
        notifyResolved(std::move(lock));
    }

    void notifyResolved(Lock lock);

    using Cell = std::variant<T, std::exception_ptr>;

    mutable std::mutex mutex; ///< guards every member below
    std::condition_variable condition;
    std::unique_ptr<Cell> result;
    std::unique_ptr<ContinuationBase<T>> continuation;
    FutureStatus status = FutureStatus::pending;
    bool futureRetrieved = false;
    bool valueRetrieved = false;
};

} // namespace detail
} // namespace connector
