// Lost or reordered values would send requests to an old endpoint.
#include "Bounded.h"

#include "tarn/foundation/CallbackSubscriber.h"
#include "tarnhost/ConfigurationStore.h"

#include <gmock/gmock.h>

#include <thread>

namespace connector::host::test {
namespace {

using configuration::ConfigValue;
using reactive_streams::CallbackSubscriber;
using testing::ElementsAre;
using ValueSubscriber = CallbackSubscriber<ConfigValue>;

ConfigValue text(const std::string& value)
{
    return ConfigValue(value);
}

class ConfigurationStoreTest : public testing::Test {
protected:
    std::shared_ptr<ValueSubscriber> observe(std::function<void(ConfigValue&&)> onValue)
    {
        auto subscriber = std::make_shared<ValueSubscriber>(std::move(onValue));
        store.observe("key")->subscribe(subscriber);
        return subscriber;
    }

    std::shared_ptr<ValueSubscriber> collect(std::vector<std::string>& into)
    {
        return observe([&into](ConfigValue&& value) { into.push_back(boost::get<std::string>(value)); });
    }

    ConfigurationStore store;
};

TEST_F(ConfigurationStoreTest, DeliversTheCurrentValueAndLaterChanges)
{
    std::vector<std::string> early;
    std::vector<std::string> late;
    auto first = collect(early);
    EXPECT_TRUE(bounded(store.registerDefault("key", text("default"), "default")));
    EXPECT_TRUE(bounded(store.registerDefault("key", text("other default"), "default")));
    auto second = collect(late);
    store.set("key", text("default")); // says the same as before
    store.set("another key", text("x"));
    store.set("key", text("a"));
    first->cancel();
    store.set("key", text("b"));
    EXPECT_TRUE(bounded(store.registerDefault("key", text("too late"), "default")));
    EXPECT_THAT(early, ElementsAre("default", "a"));
    EXPECT_THAT(late, ElementsAre("default", "a", "b"));
    EXPECT_TRUE(store.get("key") == text("b"));
    EXPECT_FALSE(store.get("unknown"));
}

TEST_F(ConfigurationStoreTest, DeliversOnlyAsMuchAsIsAskedFor)
{
    struct Slow : ValueSubscriber {
        using ValueSubscriber::ValueSubscriber;

        void onSubscribe(std::weak_ptr<reactive_streams::Subscription> offered) override
        {
            subscription = std::move(offered);
        }

        std::weak_ptr<reactive_streams::Subscription> subscription;
    };

    std::vector<std::string> seen;
    auto slow =
        std::make_shared<Slow>([&](ConfigValue&& value) { seen.push_back(boost::get<std::string>(value)); });
    store.observe("key")->subscribe(slow);
    for (const char* value : {"a", "b", "c"})
        store.set("key", text(value));
    EXPECT_THAT(seen, ElementsAre());
    slow->subscription.lock()->request(2);
    EXPECT_THAT(seen, ElementsAre("a", "b"));
    slow->subscription.lock()->request(1);
    EXPECT_THAT(seen, ElementsAre("a", "b", "c"));
}

TEST_F(ConfigurationStoreTest, OneThrowingSubscriberHidesNothingFromTheOthers)
{
    std::vector<int> before;
    std::vector<int> after;
    auto number = [](std::vector<int>& into) {
        return [&into](ConfigValue&& value) { into.push_back(boost::get<int>(value)); };
    };
    auto first = observe(number(before));
    std::vector<std::string> strings;
    auto strict = collect(strings);
    auto last = observe(number(after));
    EXPECT_THROW(store.set("key", ConfigValue(7)), boost::bad_get);
    EXPECT_THAT(before, ElementsAre(7));
    EXPECT_THAT(after, ElementsAre(7));
    EXPECT_TRUE(store.get("key") == ConfigValue(7));

    std::vector<std::string> never;
    EXPECT_THROW(collect(never), boost::bad_get);
    first->cancel();
    last->cancel();
    strict->cancel();
    EXPECT_NO_THROW(store.set("key", ConfigValue(8)))
        << "a subscriber that failed to subscribe is still there";
}

TEST_F(ConfigurationStoreTest, KeepsTheOrderOfValuesSetInsideADelivery)
{
    std::vector<std::string> seen;
    auto subscriber = observe([&](ConfigValue&& value) {
        seen.push_back(boost::get<std::string>(value));
        if (seen.size() == 1) store.set("key", text("b"));
    });
    std::vector<std::string> other;
    auto second = collect(other);
    store.set("key", text("a"));
    EXPECT_THAT(seen, ElementsAre("a", "b"));
    EXPECT_THAT(other, ElementsAre("a", "b"));
}

TEST_F(ConfigurationStoreTest, AllSubscribersSeeConcurrentValuesInTheSameOrder)
{
    std::vector<std::string> first;
    std::vector<std::string> second;
    auto one = collect(first);
    auto two = collect(second);
    auto setMany = [&](const std::string& prefix) {
        for (int i = 0; i < 500; ++i)
            store.set("key", text(prefix + std::to_string(i)));
    };
    std::thread other([&] { setMany("x"); });
    setMany("y");
    other.join();
    EXPECT_EQ(first.size(), 1000u);
    EXPECT_EQ(first, second);
}

TEST_F(ConfigurationStoreTest, TakesALiteralForText)
{
    store.set("key", "text");
    EXPECT_TRUE(store.get("key") == text("text"));
    store.set("key", u"text");
    EXPECT_TRUE(store.get("key") == ConfigValue(std::u16string(u"text")));
}

} // namespace
} // namespace connector::host::test
