// Every message ends in a resolved future, whatever the provider does and whenever the router closes.
#include "Bounded.h"

#include "tarn/foundation/Promise.h"
#include "tarn/foundation/ServiceProviderAPI.h"
#include "tarnhost/DeliveryThreads.h"
#include "tarnhost/Router.h"

#include <gtest/gtest.h>

#include <functional>
#include <future>
#include <thread>

namespace connector::host::test {
namespace {

using Reply = std::unique_ptr<Message>;

struct Note : Message {
    explicit Note(int n) : number(n) {}

    int number;
};

/// Answers with whatever the test says.
class FunctionProvider : public ServiceProvider {
public:
    using Function = std::function<Future<Reply>(Reply&&, Address&&, std::shared_ptr<Context>&&)>;

    explicit FunctionProvider(Function f) : function(std::move(f)) {}

    Future<Reply> deliver(Reply&& message, Address&& to, std::shared_ptr<Context>&& context) override
    {
        return function(std::move(message), std::move(to), std::move(context));
    }

    int starts = 0;
    int stops = 0;

protected:
    void onStart() override { ++starts; }

    void onStop() override
    {
        ++stops;
        if (throwsOnStop) throw std::runtime_error("cannot stop");
    }

public:
    bool throwsOnStop = false;

private:
    Function function;
};

/// Provider of typed messages, to see the library's own refusal.
class TypedProvider : public ServiceProviderAPI<TypedProvider> {};

class RouterTest : public testing::Test {
protected:
    ~RouterTest() override
    {
        router->close();
        threads->drain();
    }

    std::shared_ptr<FunctionProvider> add(const std::string& name, FunctionProvider::Function function,
                                          const std::string& onward = "")
    {
        auto provider = std::make_shared<FunctionProvider>(std::move(function));
        router->registerProvider(Address(name), provider, Address(onward));
        return provider;
    }

    Future<Reply> send(const std::string& to, int number = 1)
    {
        return router->send(std::make_unique<Note>(number), Address(to));
    }

    std::shared_ptr<DeliveryThreads> threads = std::make_shared<DeliveryThreads>(2);
    std::shared_ptr<Router> router = std::make_shared<Router>(threads);
};

TEST_F(RouterTest, DeliversOnItsThreadsWithTheOnwardAddress)
{
    add(
        "outer",
        [&](Reply&& message, Address&& to, std::shared_ptr<Context>&& context) {
            EXPECT_TRUE(threads->isCurrent());
            EXPECT_EQ(to, Address("inner"));
            return context->send(std::move(message), std::move(to));
        },
        "inner");
    add("inner", [](Reply&& message, auto&&, auto&&) {
        static_cast<Note&>(*message).number += 1;
        return makeReadyFuture(std::move(message));
    });
    EXPECT_EQ(static_cast<Note&>(*bounded(send("outer", 41))).number, 42);
    EXPECT_FALSE(threads->isCurrent());
}

TEST_F(RouterTest, DeliversDirectlyAndStillFillsNoStack)
{
    bool within = false, fromOutside = true;
    int left = 20'000;
    auto echo = std::make_shared<FunctionProvider>([&](Reply&& message, auto&&, auto&&) {
        EXPECT_TRUE(threads->isCurrent());
        EXPECT_NE(within, fromOutside);
        return makeReadyFuture(std::move(message));
    });
    router->registerProvider(Address("echo"), echo, Address(), Delivery::direct);
    Promise<void> over;
    std::function<void(Future<Reply>)> again = [&](Future<Reply>&& reply) {
        reply.get();
        if (--left == 0) {
            over.setValue({});
            return;
        }
        within = true;
        auto next = send("echo");
        within = false;
        static_cast<void>(next.then([&](Future<Reply>&& ready) { again(std::move(ready)); }));
    };
    bounded(send("echo"));
    fromOutside = false;
    threads->post([&] { again(makeReadyFuture(Reply())); });
    bounded(over.getFuture());
}

TEST_F(RouterTest, DeliversAtOnceOnTheThreadOfTheSenderAndSettlesOnItsOwn)
{
    const auto sender = std::this_thread::get_id();
    auto echo = std::make_shared<FunctionProvider>([&](Reply&& message, auto&&, auto&&) -> Future<Reply> {
        EXPECT_EQ(std::this_thread::get_id(), sender);
        if (static_cast<Note&>(*message).number == 0) throw std::out_of_range("boom");
        return makeReadyFuture(std::move(message));
    });
    router->registerProvider(Address("echo"), echo, Address(), Delivery::atOnce);
    for (const int number : {0, 1}) {
        std::promise<void> attached; // before that no thread is free to settle anything
        const auto wait = attached.get_future().share();
        for (int thread = 0; thread < 2; ++thread)
            threads->post([wait] { wait.wait(); });
        auto settled = send("echo", number).then([&](Future<Reply>&&) { EXPECT_TRUE(threads->isCurrent()); });
        attached.set_value();
        bounded(std::move(settled));
    }
}

TEST_F(RouterTest, FailsWhatCannotBeDelivered)
{
    add("throws", [](auto&&...) -> Future<Reply> { throw std::out_of_range("boom"); });
    add("invalid", [](auto&&...) { return Future<Reply>(); });
    add("drops", [](auto&&...) { return Promise<Reply>().getFuture(); });
    router->registerProvider(Address("typed"), std::make_shared<TypedProvider>());

    EXPECT_EQ(failureOf<std::runtime_error>(send("nowhere")), "No service is registered at \"nowhere\".");
    EXPECT_EQ(failureOf<std::out_of_range>(send("throws")), "boom");
    EXPECT_EQ(failureOf<std::runtime_error>(send("invalid")), "The service returned no future.");
    EXPECT_EQ(failureOf<std::runtime_error>(send("drops")), "Promise destroyed before it provided a value.");
    EXPECT_NE(failureOf<std::invalid_argument>(send("typed")).find("Incorrect message type."),
              std::string::npos);
    EXPECT_THROW(bounded(router->send(nullptr, Address("typed"))), std::bad_typeid);
}

TEST_F(RouterTest, RefusesBadRegistrations)
{
    auto first = add("a", [](auto&&...) { return makeReadyFuture(Reply()); });
    auto second = std::make_shared<FunctionProvider>(nullptr);
    EXPECT_THROW(router->registerProvider(Address("a"), second), std::invalid_argument);
    EXPECT_THROW(router->registerProvider(Address("b"), nullptr), std::invalid_argument);
    EXPECT_EQ(second->starts, second->stops);
    EXPECT_EQ(bounded(send("a")), nullptr);
    router->close();
    EXPECT_THROW(router->registerProvider(Address("c"), second), std::runtime_error);
}

TEST_F(RouterTest, UnregisteringStopsTheProvider)
{
    auto provider = std::make_shared<TypedProvider>();
    router->registerProvider(Address("a"), provider);
    EXPECT_TRUE(provider->isRunning());
    EXPECT_TRUE(router->unregisterProvider(Address("a")));
    EXPECT_FALSE(provider->isRunning());
    EXPECT_FALSE(router->unregisterProvider(Address("a")));
    EXPECT_EQ(failureOf<std::runtime_error>(send("a")), "No service is registered at \"a\".");
}

TEST_F(RouterTest, ClosingStopsAllProvidersEvenIfOneThrows)
{
    auto first = add("a", nullptr);
    auto second = add("b", nullptr);
    first->throwsOnStop = true;
    router->close();
    router->close();
    EXPECT_EQ(first->stops, 1);
    EXPECT_EQ(second->stops, 1);
    EXPECT_EQ(failureOf<std::runtime_error>(send("a")), "The host has been shut down.");
}

} // namespace
} // namespace connector::host::test
