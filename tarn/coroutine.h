#pragma once

#include "tarn/foundation/Promise.h"

#include <coroutine>
#include <exception>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

/// `co_await` on a Future, and coroutines that return one:
///
///     Future<void> copy(FileAccess& files)
///     {
///         auto read = co_await files.readFile(…);
///         co_await files.createFile(copyOf(*read));
///     }
///
/// A coroutine begins on the thread that calls it and goes on, after each `co_await`, on the thread that settles the
/// future: a host's delivery thread, or that of an executor after `co_await (std::move(future) | via(executor))`. A
/// failure is thrown by the `co_await`. What its parameters refer to must outlive it. One that waits for a future
/// that is never settled is destroyed with that future's state, which fails its own future with "Promise destroyed
/// before it provided a value.".
///
/// With g++ 12 put the result into a variable first: a `co_await` in the condition of `if`, `while` or `switch` crashes
/// the program, by a fault of the compiler.
namespace connector {

namespace detail {

/// Owns a waiting coroutine until it goes on.
class Suspended {
public:
    explicit Suspended(std::coroutine_handle<> waiting) : handle(waiting) {}

    Suspended(Suspended&& other) noexcept : handle(std::exchange(other.handle, nullptr)) {}

    ~Suspended()
    {
        if (handle) handle.destroy();
    }

    void resume() { std::exchange(handle, nullptr).resume(); }

private:
    std::coroutine_handle<> handle;
};

template <class T>
class FutureAwaiter {
public:
    explicit FutureAwaiter(Future<T>&& awaited) : future(std::move(awaited)) {}

    bool await_ready() const { return future.isReady(); }

    void await_suspend(std::coroutine_handle<> waiting)
    {
        // This object dies with the coroutine, which may be gone before `then` has returned.
        auto awaited = std::move(future);
        try {
            static_cast<void>(
                awaited.then([this, suspended = Suspended(waiting)](Future<T>&& settled) mutable {
                    future = std::move(settled);
                    suspended.resume();
                }));
        } catch (const std::bad_alloc&) {
            // The coroutine has gone with the lambda, and its future has failed: nobody is left to throw this to.
        }
    }

    T await_resume() { return future.get(); }

private:
    Future<T> future;
};

/// What both kinds of coroutine have: they run at once, and free themselves at their end. The future is settled after
/// the last local variable and the parameters have gone, so that whoever waits for it finds nothing of the coroutine at
/// work.
template <class T>
class CoroutinePromise {
    struct Ending {
        bool await_ready() const noexcept { return false; }

        template <class Derived>
        void await_suspend(std::coroutine_handle<Derived> ended) const noexcept
        {
            auto settling = std::move(static_cast<CoroutinePromise&>(ended.promise()));
            ended.destroy(); // and with it this object
            settling.settle();
        }

        void await_resume() const noexcept {}
    };

public:
    Future<T> get_return_object() { return promise.getFuture(); }

    std::suspend_never initial_suspend() const noexcept { return {}; }

    Ending final_suspend() noexcept { return {}; }

    void unhandled_exception() noexcept { failure = std::current_exception(); }

protected:
    std::optional<ValueOf<T>> result;

private:
    void settle()
    {
        if (failure)
            promise.setException(std::move(failure));
        else
            promise.setValue(std::move(*result));
    }

    Promise<T> promise;
    std::exception_ptr failure;
};

template <class T>
class ValueCoroutine : public CoroutinePromise<T> {
public:
    void return_value(T value) { this->result.emplace(std::move(value)); }
};

class VoidCoroutine : public CoroutinePromise<void> {
public:
    void return_void() { result.emplace(); }
};

} // namespace detail

template <class T>
detail::FutureAwaiter<T> operator co_await(Future<T>&& future)
{
    return detail::FutureAwaiter<T>(std::move(future));
}

} // namespace connector

/// @cond doxygen looks for the namespace of this in ours
template <class T, class... Arguments>
struct std::coroutine_traits<connector::Future<T>, Arguments...> {
    using promise_type = std::conditional_t<std::is_void_v<T>, connector::detail::VoidCoroutine,
                                            connector::detail::ValueCoroutine<T>>;
};

/// @endcond
