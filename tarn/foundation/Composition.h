#pragma once

#include "tarn/foundation/Executor.h"
#include "tarn/foundation/Promise.h"

#include <atomic>
#include <cstddef>
#include <exception>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

/// Work in steps: each takes a future and gives the next one.
///
///     files.readFile(…) | andThen([&](auto read) { return files.createFile(copyOf(*read)); })
///                       | recover([](std::exception_ptr) { return nothing(); })
///                       | via(onMyLoop)
///
/// A step is called on the thread that settles the future before it, or at once if that is settled already; what it
/// throws fails the future that it gives. A future that is cancelled takes no further step, and the next one is then
/// never settled, or fails with "Promise destroyed before it provided a value.".
namespace connector {

namespace detail {

/// Marks what may stand after `|`.
struct Step {};

/// Runs what is to settle the promise; what it throws fails it, outside the handler, so that whoever hears of it may
/// wait or throw as he likes.
template <class T, class Settling>
void settleBy(Promise<T>& promise, Settling settling)
{
    std::exception_ptr failure;
    try {
        return settling();
    } catch (...) {
        failure = std::current_exception();
    }
    promise.setException(std::move(failure));
}

/// Hands the result of a settled future on.
template <class T>
void settle(Promise<T>& promise, Future<T>&& settled)
{
    settleBy(promise, [&] {
        if constexpr (std::is_void_v<T>) {
            settled.get();
            promise.setValue();
        } else {
            promise.setValue(settled.get());
        }
    });
}

template <class T>
Future<T> flattened(Future<T>&& future)
{
    return std::move(future);
}

/// The result of the inner future, or the failure of the outer one.
template <class T>
Future<T> flattened(Future<Future<T>>&& nested)
{
    Promise<T> promise;
    auto future = promise.getFuture();
    static_cast<void>(nested.then([promise = std::move(promise)](Future<Future<T>>&& outer) mutable {
        settleBy(promise, [&] {
            auto inner = outer.get();
            static_cast<void>(inner.then([promise = std::move(promise)](Future<T>&& settled) mutable {
                settle(promise, std::move(settled));
            }));
        });
    }));
    return future;
}

template <class Fn>
struct AndThen : Step {
    explicit AndThen(Fn callable) : fn(std::move(callable)) {}

    template <class T>
    auto operator()(Future<T>&& future)
    {
        return flattened(future.then([next = std::move(fn)](Future<T>&& settled) mutable {
            if constexpr (std::is_void_v<T>) {
                settled.get();
                return next();
            } else {
                return next(settled.get());
            }
        }));
    }

    Fn fn;
};

template <class Fn>
struct Recover : Step {
    explicit Recover(Fn callable) : fn(std::move(callable)) {}

    template <class T>
    Future<T> operator()(Future<T>&& future)
    {
        using Result = std::invoke_result_t<Fn&, std::exception_ptr>;
        return flattened(future.then([instead = std::move(fn)](Future<T>&& settled) mutable -> Result {
            std::exception_ptr failure;
            try {
                if constexpr (std::is_same_v<Result, Future<T>> && !std::is_void_v<T>)
                    return makeReadyFuture(settled.get());
                else if constexpr (std::is_same_v<Result, Future<T>>)
                    return settled.get(), makeReadyFuture();
                else
                    return settled.get();
            } catch (...) {
                failure = std::current_exception();
            }
            return instead(std::move(failure)); // after the catch, so that it may wait or throw as it likes
        }));
    }

    Fn fn;
};

template <class Fn>
struct Finally : Step {
    explicit Finally(Fn callable) : fn(std::move(callable)) {}

    template <class T>
    Future<T> operator()(Future<T>&& future)
    {
        return future.then([last = std::move(fn)](Future<T>&& settled) mutable {
            last();
            return settled.get();
        });
    }

    Fn fn;
};

/// Kept by the job of an executor, or broken by what the executor throws, even if it has taken the job all the same.
template <class T>
struct Moving {
    void keep(Future<T>&& result)
    {
        if (!over.test_and_set()) settle(promise, std::move(result));
    }

    void fail(std::exception_ptr failure)
    {
        if (!over.test_and_set()) promise.setException(std::move(failure));
    }

    Promise<T> promise;
    std::atomic_flag over;
};

struct Via : Step {
    explicit Via(Executor to) : executor(std::move(to)) {}

    template <class T>
    Future<T> operator()(Future<T>&& future)
    {
        // Copyable, as the jobs of an executor are.
        auto moving = std::make_shared<Moving<T>>();
        auto moved = moving->promise.getFuture();
        static_cast<void>(future.then([post = std::move(executor), moving](Future<T>&& settled) {
            std::exception_ptr failure;
            try {
                auto result = std::make_shared<Future<T>>(std::move(settled));
                return post([moving, result] { moving->keep(std::move(*result)); });
            } catch (...) {
                failure = std::current_exception();
            }
            moving->fail(std::move(failure)); // after the catch, as in settleBy
        }));
        return moved;
    }

    Executor executor;
};

/// Of a failure that is not looked at on purpose.
template <class T>
void dismiss(Future<T>&& settled)
{
    try {
        static_cast<void>(settled.get());
    } catch (...) { // as said
    }
}

template <class T>
struct All {
    explicit All(std::size_t count) : settled(count), left(count) {}

    void add(std::size_t index, Future<T>&& future)
    {
        settled[index] = std::move(future);
        if (--left == 0) promise.setValue(std::move(settled));
    }

    std::vector<Future<T>> settled;
    std::atomic<std::size_t> left;
    Promise<std::vector<Future<T>>> promise;
};

} // namespace detail

/// Takes one step; the future is consumed.
template <class T, class Step>
requires std::is_base_of_v<detail::Step, Step>

auto operator|(Future<T>&& future, Step step)
{
    return step(std::move(future));
}

/// Goes on with the value: `fn(T)`, or `fn()` after a future of void, gives a value, nothing, or a future, whose result
/// becomes that of the step. A failure passes it by.
template <class Fn>
auto andThen(Fn fn)
{
    return detail::AndThen<Fn>(std::move(fn));
}

/// Goes on after a failure: `fn(std::exception_ptr)` gives a T or a Future<T> in its place, or throws. A value passes
/// it by.
template <class Fn>
auto recover(Fn fn)
{
    return detail::Recover<Fn>(std::move(fn));
}

/// Calls `fn()` in either case and hands the result on; what `fn` throws takes its place.
template <class Fn>
auto finally(Fn fn)
{
    return detail::Finally<Fn>(std::move(fn));
}

/// Hands the result on in a job of the executor, so that the steps after it run on its thread. Attach them there too,
/// or before the result can be there: one that is attached to a settled future runs where it is attached. What the
/// executor throws fails the future.
inline auto via(Executor executor)
{
    return detail::Via(std::move(executor));
}

/// Waits for all, whether they succeed or fail. @return the same futures, in their order, each ready
template <class T>
Future<std::vector<Future<T>>> whenAll(std::vector<Future<T>> futures)
{
    if (futures.empty()) return makeReadyFuture(std::move(futures));
    auto all = std::make_shared<detail::All<T>>(futures.size());
    auto future = all->promise.getFuture();
    for (std::size_t i = 0; i < futures.size(); ++i)
        static_cast<void>(
            futures[i].then([all, i](Future<T>&& settled) { all->add(i, std::move(settled)); }));
    return future;
}

/// The first of several futures to be settled.
template <class T>
struct FirstOf {
    std::size_t index = 0; ///< its place among the futures given
    Future<T> settled;
};

/// Waits for the first to be settled, by value or failure; the results of the others are dropped.
/// @param futures  not empty
template <class T>
Future<FirstOf<T>> whenAny(std::vector<Future<T>> futures)
{
    struct Race {
        std::atomic<bool> over = false;
        Promise<FirstOf<T>> promise;
    };

    auto race = std::make_shared<Race>();
    auto future = race->promise.getFuture();
    for (std::size_t i = 0; i < futures.size(); ++i)
        static_cast<void>(futures[i].then([race, i](Future<T>&& settled) {
            if (!race->over.exchange(true))
                race->promise.setValue({i, std::move(settled)});
            else
                detail::dismiss(std::move(settled));
        }));
    return future;
}

} // namespace connector
