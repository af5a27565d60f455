// Steps after a future, and coroutines: each runs once, where it should, and no end is lost on the way.
#include "tarn/foundation/Composition.h"
#include "tarn/coroutine.h"

#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <thread>

namespace connector {
namespace {

using Number = std::unique_ptr<int>;

Number number(int value)
{
    return std::make_unique<int>(value);
}

/// Takes jobs; runs them when told, as an event loop does.
struct Loop {
    Executor executor()
    {
        return [this](std::function<void()> job) { jobs.push_back(std::move(job)); };
    }

    void run()
    {
        for (; !jobs.empty(); jobs.pop_front())
            jobs.front()();
    }

    std::deque<std::function<void()>> jobs;
};

template <class T>
std::string outcomeOf(Future<T>&& future)
{
    if (!future.isReady()) return "pending";
    try {
        if constexpr (std::is_void_v<T>)
            return future.get(), "done";
        else if constexpr (std::is_same_v<T, Number>)
            return std::to_string(*future.get());
        else
            return std::to_string(future.get());
    } catch (const std::exception& error) {
        return error.what();
    }
}

Future<int> doubled(Future<Number> future)
{
    const auto value = co_await std::move(future);
    co_return *value * 2;
}

Future<void> threeSteps(std::vector<Promise<Number>>& steps, Executor executor,
                        std::vector<std::thread::id>& threads)
{
    for (auto& step : steps) {
        co_await (step.getFuture() | via(executor));
        threads.push_back(std::this_thread::get_id());
    }
}

/// Every way to go on, after a value, a failure, and a promise that is dropped.
TEST(Composition, HandsOnWhatEachStepGives)
{
    const auto bad = [](auto&&...) -> int { throw std::runtime_error("bad step"); };

    const struct {
        const char* name;
        std::function<Future<Number>(Future<Number>)> steps;
        const char *afterValue, *afterFailure;
    } rows[] = {
        {"value", [](auto f) { return std::move(f) | andThen([](Number n) { return number(*n + 1); }); }, "8",
         "no"},
        {"future",
         [](auto f) {
             return std::move(f) | andThen([](Number n) { return makeReadyFuture(std::move(n)); });
         },
         "7", "no"},
        {"nothing",
         [](auto f) { return std::move(f) | andThen([](Number) {}) | andThen([] { return number(1); }); },
         "1", "no"},
        {"throws",
         [&](auto f) { return std::move(f) | andThen(bad) | andThen([](int n) { return number(n); }); },
         "bad step", "no"},
        {"recover", [](auto f) { return std::move(f) | recover([](auto&&) { return number(0); }); }, "7",
         "0"},
        {"recover by future",
         [](auto f) { return std::move(f) | recover([](auto&&) { return makeReadyFuture(number(0)); }); },
         "7", "0"},
        {"finally", [](auto f) { return std::move(f) | finally([] {}); }, "7", "no"},
        {"finally throws", [&](auto f) { return std::move(f) | finally(bad); }, "bad step", "bad step"},
        {"coroutine", [](auto f) { return doubled(std::move(f)) | andThen([](int n) { return number(n); }); },
         "14", "no"},
    };

    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        for (const bool before : {true, false}) {
            std::vector<Promise<Number>> promises(3);
            std::vector<Future<Number>> results;
            const auto attach = [&] {
                for (auto& promise : promises)
                    results.push_back(row.steps(promise.getFuture()));
            };
            if (before) attach();
            promises[0].setValue(number(7));
            promises[1].setException(std::make_exception_ptr(std::runtime_error("no")));
            if (!before) attach();
            promises.pop_back();
            EXPECT_EQ(outcomeOf(std::move(results[0])), row.afterValue);
            EXPECT_EQ(outcomeOf(std::move(results[1])), row.afterFailure);
            EXPECT_NE(outcomeOf(std::move(results[2])), "pending");
        }
    }
}

TEST(Composition, GoesOnOnTheThreadOfTheExecutor)
{
    Loop loop;
    std::vector<Promise<Number>> steps(3);
    std::vector<std::thread::id> threads;
    auto end = threeSteps(steps, loop.executor(), threads);
    for (auto& step : steps) {
        std::thread([&] { step.setValue(number(1)); }).join();
        loop.run();
    }
    EXPECT_EQ(outcomeOf(std::move(end)), "done");
    EXPECT_EQ(threads, std::vector(3, std::this_thread::get_id()));

    Promise<Number> dropped;
    auto lost = dropped.getFuture() | via(loop.executor());
    dropped.setValue(number(1));
    loop.jobs.clear();
    EXPECT_EQ(outcomeOf(std::move(lost)), "Promise destroyed before it provided a value.");
}

TEST(Composition, FailsWithWhatTheExecutorThrows)
{
    Loop loop;
    for (const bool takesJob : {true, false}) {
        auto moved = makeReadyFuture(number(1)) | via([&](auto job) {
                         if (takesJob) loop.executor()(std::move(job));
                         throw std::runtime_error("closed");
                     });
        loop.run();
        EXPECT_EQ(outcomeOf(std::move(moved)), "closed");
    }
}

TEST(Composition, WaitsForAllAndForAny)
{
    std::vector<Promise<int>> promises(3);
    const auto futures = [&] {
        std::vector<Future<int>> taken;
        for (auto& promise : promises = std::vector<Promise<int>>(3))
            taken.push_back(promise.getFuture());
        return taken;
    };
    auto any = whenAny(futures());
    promises[1].setException(std::make_exception_ptr(std::runtime_error("no")));
    promises[0].setValue(5);
    auto first = any.get();
    EXPECT_EQ(first.index, 1u);
    EXPECT_EQ(outcomeOf(std::move(first.settled)), "no");

    auto all = whenAll(futures());
    promises[2].setValue(3);
    promises[1].setException(std::make_exception_ptr(std::runtime_error("no")));
    EXPECT_FALSE(all.isReady());
    promises[0].setValue(5);
    auto settled = all.get();
    EXPECT_EQ(outcomeOf(std::move(settled[0])), "5");
    EXPECT_EQ(outcomeOf(std::move(settled[1])), "no");
    EXPECT_TRUE(whenAll(std::vector<Future<int>>()).get().empty());
}

Future<int> holding(std::shared_ptr<int> parameter, Future<Number> future)
{
    co_return *parameter + *co_await std::move(future);
}

/// Whoever hears of the end may take down what the coroutine was given.
TEST(Coroutine, SettlesWhenItsParametersHaveGone)
{
    auto given = std::make_shared<int>(1);
    const std::weak_ptr<int> seen = given;
    Promise<Number> promise;
    auto held = holding(std::move(given), promise.getFuture()).then([&](Future<int>&& settled) {
        return settled.get() + (seen.expired() ? 0 : 100);
    });
    promise.setValue(number(2));
    EXPECT_EQ(outcomeOf(std::move(held)), "3");
}

/// A coroutine that waits for what never comes is freed, and says so; the leak sanitizer looks on.
TEST(Coroutine, EndsWithThePromiseItWaitsFor)
{
    auto promise = std::make_optional<Promise<Number>>();
    auto awaited = promise->getFuture();
    auto result = doubled(std::move(awaited));
    promise.reset();
    EXPECT_EQ(outcomeOf(std::move(result)), "Promise destroyed before it provided a value.");
}

} // namespace
} // namespace connector
