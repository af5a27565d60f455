// Settling a result exactly once, whoever races: lost wake-ups, continuations run twice or never, promises
// that nobody keeps, and the exact words with which misuse is refused.
#include "support/FakeTransport.h"
#include "tarn/foundation/Promise.h"

#include <gtest/gtest.h>

#include <chrono>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace connector;
using namespace std::chrono_literals;
using tarntest::outcomeOf;
using Number = std::unique_ptr<int>; // results are moved, never copied

template <class Call>
std::string errorOf(Call&& call)
{
    try {
        static_cast<void>(call());
        return "no error";
    } catch (const std::runtime_error& error) {
        return error.what();
    }
}

std::exception_ptr failure(const char* text)
{
    return std::make_exception_ptr(std::logic_error(text));
}

TEST(Future, RefusesASecondUseInExactWords)
{
    Promise<int> promise;
    auto future = promise.getFuture();
    EXPECT_EQ(errorOf([&] { return promise.getFuture(); }), "Promise already returned a future.");
    promise.setValue(1);
    EXPECT_EQ(errorOf([&] { promise.setValue(2); }), "Promise already resolved.");
    EXPECT_EQ(errorOf([&] { promise.setException(failure("late")); }), "Promise already resolved.");
    EXPECT_EQ(future.get(), 1);
    EXPECT_EQ(errorOf([&] { future.get(); }),
              "Future already returned it's value or has an associated continuation.");
    EXPECT_EQ(errorOf([&] { return future.then([](Future<int>&& f) { return f.get(); }); }),
              "Future already has returned it's value or has an associated continuation.");

    auto moved = std::move(promise);
    EXPECT_EQ(errorOf([&] { return promise.getFuture(); }), "Promise state isn't valid!");
    EXPECT_EQ(errorOf([&] { promise.setValue(3); }), "Promise state isn't valid!");
    EXPECT_EQ(errorOf([&] { promise.setException(failure("x")); }), "Promise state isn't valid!");
    EXPECT_EQ(errorOf([] { Future<int>().get(); }), "Future state isn't valid!");
    EXPECT_EQ(errorOf([] { return Future<int>().then([](Future<int>&& f) { return f.get(); }); }),
              "Future state isn't valid!");
}

TEST(Future, RefusesTheStateThatAContinuationHolds)
{
    auto state = std::make_shared<detail::SharedFutureState<int>>();
    Future<int> first(state);
    Future<int> second(state);
    auto next = first.then([](Future<int>&& f) { return f.get(); });
    EXPECT_EQ(errorOf([&] { second.get(); }),
              "Future already returned it's value or has an associated continuation.");
    EXPECT_EQ(errorOf([&] { return second.then([](Future<int>&& f) { return f.get(); }); }),
              "Future already has returned it's value or has an associated continuation.");
    state->setValue(5);
    EXPECT_EQ(next.get(), 5) << "the refused calls changed nothing";
}

TEST(Future, FailsWhenItsPromiseDies)
{
    Future<int> future;
    {
        Promise<int> promise;
        future = promise.getFuture();
        Promise<int> owner = std::move(promise);
        promise = std::move(owner); // moving to and fro settles nothing
        EXPECT_FALSE(future.isReady());
    }
    EXPECT_EQ(outcomeOf(future), "Promise destroyed before it provided a value.");

    Promise<int> replaced;
    auto orphan = replaced.getFuture();
    replaced = Promise<int>();
    EXPECT_EQ(outcomeOf(orphan), "Promise destroyed before it provided a value.");
}

TEST(Future, RunsAContinuationOnTheResolvingThreadOrAtOnce)
{
    Promise<int> promise;
    std::thread::id ranOn;
    auto next = promise.getFuture().then([&](Future<int>&& f) {
        ranOn = std::this_thread::get_id();
        return std::to_string(f.get());
    });
    EXPECT_FALSE(next.isReady());
    std::thread producer([&] { promise.setValue(7); });
    const auto producerId = producer.get_id();
    producer.join();
    EXPECT_EQ(ranOn, producerId);
    auto last = next.then([&](Future<std::string>&& f) {
        ranOn = std::this_thread::get_id();
        return f.get() + "!";
    });
    EXPECT_EQ(ranOn, std::this_thread::get_id());
    EXPECT_EQ(last.get(), "7!");
}

TEST(Future, PassesTheVeryExceptionOfAContinuationOn)
{
    auto thrown = failure("the one");
    auto next = makeReadyFuture(1).then([&](Future<int>&&) -> int { std::rethrow_exception(thrown); });
    auto last = next.then([](Future<int>&& f) { return f.get(); });
    std::exception_ptr caught;
    try {
        last.get();
    } catch (...) {
        caught = std::current_exception();
    }
    EXPECT_EQ(caught, thrown);
}

TEST(Future, DropsWhatComesAfterACancel)
{
    Promise<Number> promise;
    auto future = promise.getFuture();
    future.cancel();
    EXPECT_EQ(errorOf([&] { future.get(); }), "Future has been cancelled.");
    promise.setValue(std::make_unique<int>(1));
    promise.setException(failure("late"));

    bool ran = false;
    Promise<int> source;
    auto next = source.getFuture().then([&](Future<int>&& f) {
        ran = true;
        return f.get();
    });
    next.cancel();
    source.setValue(1);
    EXPECT_TRUE(ran) << "the source's continuation runs, its outcome is dropped";
    EXPECT_EQ(errorOf([&] { next.get(); }), "Future has been cancelled.");

    Promise<int> cancelled;
    auto given = cancelled.getFuture();
    given.cancel();
    auto never = given.then([](Future<int>&& f) { return f.get(); });
    cancelled.setValue(1);
    EXPECT_FALSE(never.isReady());

    auto ready = makeReadyFuture(3);
    ready.cancel();
    EXPECT_EQ(ready.get(), 3);
}

TEST(Future, LetsAContinuationSettleAndAttachFurther)
{
    Promise<int> outer;
    Promise<int> inner;
    std::vector<int> order;
    auto innerDone = inner.getFuture().then([&](Future<int>&& f) {
        order.push_back(f.get());
        return 0;
    });
    auto outerDone = outer.getFuture().then([&](Future<int>&& f) {
        order.push_back(f.get());
        inner.setValue(2);
        return makeReadyFuture(3)
            .then([&](Future<int>&& g) {
                order.push_back(g.get());
                return 0;
            })
            .get();
    });
    outer.setValue(1);
    outerDone.get();
    innerDone.get();
    EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

TEST(Future, WrapsAnExceptionPointerGivenAsTheException)
{
    auto future = makeExceptionalFuture<int>(failure("inside"));
    try {
        future.get();
        FAIL();
    } catch (const std::exception_ptr& wrapped) {
        EXPECT_THROW(std::rethrow_exception(wrapped), std::logic_error);
    }
}

TEST(Future, WaitsAsLongAsItIsTold)
{
    Promise<int> promise;
    auto future = promise.getFuture();
    EXPECT_FALSE(future.waitFor(0s));
    EXPECT_FALSE(future.waitFor(std::chrono::hours::min()));
    std::latch waiting(1);
    std::thread producer([&] {
        waiting.wait();
        promise.setValue(7);
    });
    waiting.count_down();
    EXPECT_TRUE(future.waitFor(std::chrono::hours::max()));
    producer.join();
}

} // namespace
