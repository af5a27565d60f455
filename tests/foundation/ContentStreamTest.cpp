// Bytes on their way to and from the network: items lost, doubled or out of order, copies of large bodies,
// streams that end in the middle or are cancelled from inside.
#include "support/ManualPublisher.h"
#include "tarn/foundation/ContentReduction.h"
#include "tarn/foundation/OneShotPublisher.h"
#include "tarn/foundation/ReducingSubscriber.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace connector;
using namespace connector::reactive_streams;
using common::DataBuffer;
using tarntest::ManualPublisher;
using Reducing = ReducingSubscriber<DataBuffer, DataBuffer>;

/// Requests what the test says, and records.
class ManualSubscriber : public SubscriberAPI<DataBuffer> {
public:
    void onSubscribe(std::weak_ptr<Subscription> offered) override { subscription = offered.lock(); }

    void onComplete() override { events.push_back("complete"); }

    Future<bool> completion() override { return makeReadyFuture(true); }

    void onNext(DataBuffer&& item) override { events.push_back("item " + std::string(item.bytes())); }

    void onError(std::exception_ptr) override { events.push_back("error"); }

    void cancel() override {}

    std::shared_ptr<Subscription> subscription;
    std::vector<std::string> events;
};

std::exception_ptr broken()
{
    return std::make_exception_ptr(std::logic_error("broken"));
}

TEST(OneShotPublisher, DeliversOnceAndOnlyOnDemand)
{
    auto publisher = std::make_shared<OneShotPublisher<DataBuffer>>(DataBuffer("body"));
    auto subscriber = std::make_shared<ManualSubscriber>();
    publisher->subscribe(subscriber);
    subscriber->subscription->request(0);
    EXPECT_TRUE(subscriber->events.empty());
    subscriber->subscription->request(1);
    subscriber->subscription->request(1);
    EXPECT_EQ(subscriber->events, (std::vector<std::string>{"item body", "complete"}));
    EXPECT_THROW(publisher->subscribe(subscriber), std::invalid_argument);
    EXPECT_TRUE(publisher->completion().get());

    publisher.reset();
    subscriber->subscription->request(1); // the publisher is gone, the subscription is not
    subscriber->subscription->cancel();
}

TEST(OneShotPublisher, DeliversAnEmptyBufferAndNothingAfterCancel)
{
    auto empty = std::make_shared<OneShotPublisher<DataBuffer>>(DataBuffer());
    auto first = std::make_shared<ManualSubscriber>();
    empty->subscribe(first);
    first->subscription->request(5);
    EXPECT_EQ(first->events, (std::vector<std::string>{"item ", "complete"}));

    auto given = std::make_shared<OneShotPublisher<DataBuffer>>(DataBuffer("body"));
    auto second = std::make_shared<ManualSubscriber>();
    given->subscribe(second);
    second->subscription->cancel();
    second->subscription->request(1);
    EXPECT_TRUE(second->events.empty());
}

TEST(ContentReduction, JoinsItemsFromAnotherThreadInOrder)
{
    auto manual = std::make_shared<ManualPublisher>();
    std::shared_ptr<PublisherAPI<DataBuffer>> publisher = manual;
    auto content = reduceContentToDataBuffer(publisher);
    EXPECT_EQ(manual->link->requested, unboundedDemand);
    std::string expected;
    std::thread network([&] {
        for (int i = 0; i < 10'000; ++i) {
            const std::string item(static_cast<std::size_t>(i % 7), static_cast<char>('a' + i % 26));
            expected += item;
            manual->subscriber->onNext(DataBuffer(item));
        }
        manual->subscriber->onComplete();
        manual->subscriber->onNext(DataBuffer("late"));
        manual->subscriber->onError(broken());
    });
    auto body = content.get();
    network.join();
    EXPECT_EQ(body.bytes(), expected);
}

TEST(ContentReduction, TakesASingleExactItemOverWithoutACopy)
{
    DataBuffer item("a large body");
    const void* storage = item.data;
    std::shared_ptr<PublisherAPI<DataBuffer>> publisher =
        std::make_shared<OneShotPublisher<DataBuffer>>(std::move(item));
    EXPECT_EQ(item.data, nullptr);
    auto body = reduceContentToDataBuffer(publisher).get();
    EXPECT_EQ(body.data, storage);
    EXPECT_EQ(body.bytes(), "a large body");
}

TEST(ContentReduction, AppendsByDoublingAndIgnoresEmptyItems)
{
    auto joined = appendContent(DataBuffer("12345"), appendContent(DataBuffer(), DataBuffer("abc")));
    EXPECT_EQ(joined.bytes(), "abc12345");
    EXPECT_EQ(joined.capacity, 8u);
    joined = appendContent(DataBuffer("x"), std::move(joined));
    EXPECT_EQ(joined.capacity, 16u);
    DataBuffer copy = joined;
    EXPECT_EQ(copy.capacity, 9u) << "a copy has exactly the bytes in use";
    EXPECT_EQ(copy.bytes(), joined.bytes());

    DataBuffer roomy(std::malloc(100), 100, 0);
    EXPECT_EQ(appendContent(DataBuffer("y"), std::move(roomy)).capacity, 100u);
    DataBuffer huge;
    huge.size = ~std::uint64_t{0};
    EXPECT_THROW(appendContent(std::move(huge), DataBuffer("z")), std::runtime_error);
    EXPECT_THROW(DataBuffer().reserve(~std::uint64_t{0} / 2), std::runtime_error);
}

TEST(ReducingSubscriber, ReportsAFailedStream)
{
    auto manual = std::make_shared<ManualPublisher>();
    auto subscriber = std::make_shared<Reducing>(DataBuffer(), appendContent);
    auto content = subscriber->getFuture();
    auto whileActive = subscriber->completion();
    manual->subscribe(subscriber);
    manual->subscriber->onNext(DataBuffer("partial"));
    manual->subscriber->onError(broken());
    EXPECT_THROW(content.get(), std::logic_error);
    EXPECT_THROW(whileActive.get(), std::logic_error);
    try {
        subscriber->completion().get();
        FAIL();
    } catch (const std::exception_ptr& held) {
        EXPECT_THROW(std::rethrow_exception(held), std::logic_error) << "the pointer itself is the exception";
    }
}

TEST(ReducingSubscriber, EndsTheStreamWhenItsReducerThrows)
{
    auto manual = std::make_shared<ManualPublisher>();
    auto subscriber = std::make_shared<Reducing>(
        DataBuffer(), [](DataBuffer&&, DataBuffer&&) -> DataBuffer { throw std::logic_error("no room"); });
    auto content = subscriber->getFuture();
    manual->subscribe(subscriber);
    manual->subscriber->onNext(DataBuffer("x"));
    EXPECT_TRUE(manual->link->cancelled);
    EXPECT_THROW(content.get(), std::logic_error);
    EXPECT_FALSE(subscriber->completion().get());
    manual->subscriber->onComplete();

    auto empty = std::make_shared<Reducing>(DataBuffer(), nullptr);
    auto nothing = empty->getFuture();
    manual->subscribe(empty);
    empty->onNext(DataBuffer("x"));
    EXPECT_THROW(nothing.get(), std::bad_function_call);
}

TEST(ReducingSubscriber, SettlesItsResultWhenCancelledOrAbandoned)
{
    auto manual = std::make_shared<ManualPublisher>();
    auto cancelled = std::make_shared<Reducing>(DataBuffer(), appendContent);
    auto content = cancelled->getFuture();
    auto ended = cancelled->completion();
    manual->subscribe(cancelled);
    cancelled->cancel();
    cancelled->cancel();
    EXPECT_TRUE(manual->link->cancelled);
    EXPECT_FALSE(ended.get());
    EXPECT_THROW(content.get(), std::runtime_error);

    auto dropped = std::make_shared<Reducing>(DataBuffer(), appendContent);
    auto orphan = dropped->getFuture();
    dropped.reset();
    EXPECT_TRUE(orphan.isReady());

    auto late = std::make_shared<Reducing>(DataBuffer(), appendContent);
    EXPECT_THROW(late->onSubscribe({}), std::runtime_error) << "Subscription went away!";
}

TEST(ReducingSubscriber, MayBeDroppedByWhoeverHearsOfItsEnd)
{
    auto owner = std::make_shared<Reducing>(DataBuffer(), appendContent);
    Reducing& subscriber = *owner;
    auto ended = subscriber.completion();
    auto dropped = subscriber.getFuture().then([&](Future<DataBuffer>&& body) {
        owner.reset();
        return body.get().size;
    });
    subscriber.onNext(DataBuffer("x"));
    subscriber.onComplete();
    EXPECT_EQ(dropped.get(), 1u);
    EXPECT_TRUE(ended.get());
}

TEST(OneShotPublisher, MayBeDroppedByItsSubscriber)
{
    /// Lets go of the publisher as soon as it has the item.
    class Dropping : public ManualSubscriber {
    public:
        void onNext(DataBuffer&& item) override
        {
            publisher.reset();
            ManualSubscriber::onNext(std::move(item));
        }

        std::shared_ptr<OneShotPublisher<DataBuffer>> publisher;
    };

    auto subscriber = std::make_shared<Dropping>();
    subscriber->publisher = std::make_shared<OneShotPublisher<DataBuffer>>(DataBuffer("body"));
    subscriber->publisher->subscribe(subscriber);
    auto subscription = std::move(subscriber->subscription);
    subscription->request(1);
    EXPECT_EQ(subscriber->events, (std::vector<std::string>{"item body", "complete"}));
}

TEST(ReducingSubscriber, RunsContinuationsWithoutItsLock)
{
    auto subscriber = std::make_shared<Reducing>(DataBuffer(), appendContent);
    auto seen = subscriber->getFuture().then([&](Future<DataBuffer>&& body) {
        subscriber->onNext(DataBuffer("more")); // would deadlock under the lock
        return subscriber->completion().get() && body.get().size == 1;
    });
    subscriber->onNext(DataBuffer("x"));
    subscriber->onComplete();
    EXPECT_TRUE(seen.get());
}

} // namespace
