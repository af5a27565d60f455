// Following the configured endpoint: values of the wrong type, values after the end, and the order in which
// the default is declared and the subscription given up.
#include "tarn/foundation/EndpointTracking.h"
#include "tarn/foundation/CallbackSubscriber.h"
#include "tarn/session/TarnSessionClientServiceProvider.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

using namespace connector;
using namespace connector::tarn;
using configuration::ConfigValue;
using reactive_streams::CallbackSubscriber;

class CountingSubscription : public reactive_streams::Subscription {
public:
    void request(std::uint64_t n) override { requested.push_back(n); }

    void cancel() override { ++cancels; }

    std::vector<std::uint64_t> requested;
    int cancels = 0;
};

/// A configuration store that records what is asked of it and delivers when the test says so.
class FakeConfiguration : public configuration::Configuration,
                          public reactive_streams::PublisherAPI<ConfigValue>,
                          public std::enable_shared_from_this<FakeConfiguration> {
public:
    Future<bool> registerDefault(const std::string& key, const ConfigValue& value,
                                 const std::string& layer) override
    {
        calls.push_back("default " + key + " " + boost::get<std::string>(value) + " " + layer);
        return makeReadyFuture(true);
    }

    std::shared_ptr<PublisherAPI<ConfigValue>> observe(const std::string& key) override
    {
        calls.push_back("observe " + key);
        return shared_from_this();
    }

    Future<bool> completion() override { return makeReadyFuture(true); }

    void subscribe(std::shared_ptr<reactive_streams::SubscriberAPI<ConfigValue>> added) override
    {
        subscriber = added;
        subscriber->onSubscribe(subscription);
    }

    std::vector<std::string> calls;
    std::shared_ptr<reactive_streams::SubscriberAPI<ConfigValue>> subscriber;
    std::shared_ptr<CountingSubscription> subscription = std::make_shared<CountingSubscription>();
};

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

TEST(EndpointTracking, KeepsTheFirstEndpointWithoutAConfiguration)
{
    EXPECT_EQ(TarnSessionClientServiceProvider(nullptr, "http://only").getEndpoint(), "http://only");
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
    EXPECT_THROW(completed->completion(), std::runtime_error);

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

} // namespace
