// Following the configured endpoint: values of the wrong type, values after the end, and the order in which
// the default is declared and the subscription given up.
#include "tarn/foundation/EndpointTracking.h"
#include "support/FakeConfiguration.h"
#include "support/FakeTransport.h"
#include "tarn/accesscontrol/AccessControlClientServiceProvider.h"
#include "tarn/accesscontrol/PermissionMessages.h"
#include "tarn/fileaccess/FileAccessClientServiceProvider.h"
#include "tarn/fileaccess/FileMessages.h"
#include "tarn/foundation/CallbackSubscriber.h"
#include "tarn/session/TarnSessionClientServiceProvider.h"
#include "tarn/versioning/VersionMessages.h"
#include "tarn/versioning/VersioningClientServiceProvider.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <latch>
#include <thread>
#include <vector>

namespace {

using namespace connector;
using namespace connector::tarn;
using namespace tarntest;
using reactive_streams::CallbackSubscriber;

TEST(EndpointTracking, FollowsTextAndRefusesEverythingElse)
{
    auto store = std::make_shared<FakeConfiguration>();
    auto provider = std::make_shared<TarnSessionClientServiceProvider>(store, "http://first");
    EXPECT_EQ(store->calls, (std::vector<std::string>{"default connector.tarnEndpoint http://first default",
                                                      "observe connector.tarnEndpoint"}));
    EXPECT_EQ(store->subscription->requested, std::vector<std::uint64_t>{~std::uint64_t{0}});
    EXPECT_EQ(provider->getEndpoint(), "http://first");

    store->subscriber->onNext(ConfigValue(std::string("http://second")));
    EXPECT_EQ(provider->getEndpoint(), "http://second");
    const std::vector<ConfigValue> refused = {
        true, 1, 1u, 1.0, std::u16string(u"http://x"), std::vector<std::string>{"http://x"}};
    for (auto value : refused) {
        try {
            store->subscriber->onNext(std::move(value));
            ADD_FAILURE();
        } catch (const boost::bad_get& error) {
            EXPECT_STREQ(error.what(), "boost::bad_get: failed value get using boost::get");
        }
    }
    EXPECT_EQ(provider->getEndpoint(), "http://second");

    provider.reset();
    EXPECT_EQ(store->subscription->cancels, 1);
    store->subscriber->onNext(ConfigValue(std::string("http://nobody"))); // must reach no dead provider
}

template <class Pair>
class EveryProvider : public testing::Test {
};

template <class P, class R>
struct Handling {
    using Provider = P;
    using Request = R;
};

using Providers = testing::Types<Handling<TarnSessionClientServiceProvider, Ping>,
                                 Handling<FileAccessClientServiceProvider, FileRead>,
                                 Handling<AccessControlClientServiceProvider, PermissionList>,
                                 Handling<VersioningClientServiceProvider, VersionList>>;
TYPED_TEST_SUITE(EveryProvider, Providers);

TYPED_TEST(EveryProvider, SendsToTheEndpointLastConfigured)
{
    auto store = std::make_shared<FakeConfiguration>();
    auto transport = std::make_shared<FakeTransport>();
    typename TypeParam::Provider provider(store, "http://first");
    auto send = [&] {
        return provider.handle(std::make_unique<typename TypeParam::Request>(), Address("http"),
                               transport->getContext());
    };
    auto first = send();
    store->subscriber->onNext(ConfigValue(std::string("http://second")));
    auto second = send();
    EXPECT_EQ(store->calls.front(), "default connector.tarnEndpoint http://first default");
    EXPECT_THAT(transport->sent(0), testing::HasSubstr(" http://first/service/"));
    EXPECT_THAT(transport->sent(1), testing::HasSubstr(" http://second/service/"));
}

/// Delivers a value that no provider takes as soon as it is subscribed to, and keeps the subscriber all the
/// same.
class UnfitConfiguration : public FakeConfiguration {
public:
    void subscribe(std::shared_ptr<reactive_streams::SubscriberAPI<ConfigValue>> added) override
    {
        FakeConfiguration::subscribe(added);
        subscriber->onNext(ConfigValue(7));
    }
};

TYPED_TEST(EveryProvider, IsNotReachedWhenItsConstructionFailed)
{
    auto store = std::make_shared<UnfitConfiguration>();
    EXPECT_THROW(std::make_unique<typename TypeParam::Provider>(store, "http://first"), boost::bad_get);
    store->subscriber->onNext(ConfigValue(std::string("http://nobody")));
    EXPECT_EQ(store->subscription->cancels, 1);
}

TEST(CallbackSubscriber, EndsOnceAndSaysHow)
{
    auto subscription = std::make_shared<CountingSubscription>();
    int values = 0;
    auto make = [&] { return std::make_shared<CallbackSubscriber<int>>([&](int&&) { ++values; }); };

    auto completed = make();
    completed->onSubscribe(subscription);
    completed->onNext(1);
    completed->onComplete();
    completed->onError(std::make_exception_ptr(std::logic_error("late")));
    completed->cancel();
    completed->onNext(2);
    EXPECT_EQ(values, 1);
    EXPECT_EQ(subscription->cancels, 0) << "a stream that has ended is not cancelled";
    EXPECT_TRUE(completed->completion().get());
    EXPECT_THROW(completed->completion().get(), std::runtime_error);

    auto failed = make();
    failed->onError(std::make_exception_ptr(std::logic_error("broken")));
    EXPECT_THROW(failed->completion().get(), std::logic_error);

    auto cancelled = make();
    cancelled->onSubscribe(subscription);
    cancelled->cancel();
    cancelled->cancel();
    cancelled->onComplete();
    cancelled->onSubscribe(subscription);
    EXPECT_FALSE(cancelled->completion().get());
    EXPECT_EQ(subscription->cancels, 1);
    EXPECT_EQ(subscription->requested.size(), 2u) << "nothing is requested after the end";

    auto empty = std::make_shared<CallbackSubscriber<int>>(nullptr);
    EXPECT_THROW(empty->onNext(1), std::bad_function_call);
}

TEST(CallbackSubscriber, WaitsInCancelForCallbacksOnOtherThreads)
{
    std::latch entered(2);
    std::latch leave(1);
    std::atomic<int> running{2};
    std::shared_ptr<CallbackSubscriber<int>> subscriber;
    subscriber = std::make_shared<CallbackSubscriber<int>>([&](int&& inside) {
        entered.arrive_and_wait();        // after a cancel the other would not be let in
        if (inside) subscriber->cancel(); // waits neither for itself nor for another that may do the same
        leave.wait();
        --running;
    });
    std::jthread first([&] { subscriber->onNext(0); });
    std::jthread second([&] { subscriber->onNext(1); });
    entered.wait();
    Promise<int> cancelled;
    auto stillRunning = cancelled.getFuture();
    std::jthread canceller([&] {
        subscriber->cancel();
        cancelled.setValue(running.load());
    });
    EXPECT_FALSE(stillRunning.waitFor(std::chrono::milliseconds(50))) << "returned while a callback ran";
    leave.count_down();
    EXPECT_EQ(stillRunning.get(), 0);
}

TEST(CallbackSubscriber, OutlivesACallbackThatDropsIt)
{
    std::shared_ptr<CallbackSubscriber<int>> owner;
    owner = std::make_shared<CallbackSubscriber<int>>([&](int&&) {
        owner->cancel();
        owner.reset();
    });
    CallbackSubscriber<int>& subscriber = *owner;
    subscriber.onNext(1);
    EXPECT_FALSE(owner);
}

} // namespace
