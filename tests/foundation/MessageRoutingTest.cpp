// The way of a message from a typed send to the right handler and back: wrong messages, wrong providers and
// wrong replies must be refused in exactly these words, through the future, once.
#include "support/FakeTransport.h"
#include "tarn/foundation/ServiceProviderAPI.h"

#include <gtest/gtest.h>

#include <typeinfo>

namespace routing {

struct Greet;
struct Count;

class GreeterProvider : public connector::ServiceProviderAPI<GreeterProvider> {
public:
    virtual tarntest::Reply handle(std::unique_ptr<Greet>&&, connector::Address&&,
                                   std::shared_ptr<connector::Context>&&) = 0;
    virtual tarntest::Reply handle(std::unique_ptr<Count>&&, connector::Address&&,
                                   std::shared_ptr<connector::Context>&&) = 0;
};

class OtherProvider : public connector::ServiceProviderAPI<OtherProvider> {
public:
    virtual tarntest::Reply handle(std::unique_ptr<struct Strange>&&, connector::Address&&,
                                   std::shared_ptr<connector::Context>&&) = 0;
};

struct Greet : connector::MessageAPI<Greet, GreeterProvider> {
    std::string name;
};

struct Count : connector::MessageAPI<Count, GreeterProvider> {};

struct Strange : connector::MessageAPI<Strange, OtherProvider> {};

struct Greeting : connector::Message {
    std::string text;
};

/// Greets at once; answers Count with whatever the test put in.
class Greeter : public GreeterProvider {
public:
    tarntest::Reply handle(std::unique_ptr<Greet>&& greet, connector::Address&& to,
                           std::shared_ptr<connector::Context>&&) override
    {
        auto greeting = std::make_unique<Greeting>();
        greeting->text = "hello " + greet->name + " via " + to.getName();
        return connector::makeReadyFuture<tarntest::MessagePtr>(std::move(greeting));
    }

    tarntest::Reply handle(std::unique_ptr<Count>&&, connector::Address&&,
                           std::shared_ptr<connector::Context>&&) override
    {
        return connector::makeReadyFuture(std::move(countReply));
    }

    tarntest::MessagePtr countReply;
};

std::string deliver(Greeter& provider, tarntest::MessagePtr&& message)
{
    auto future = provider.deliver(std::move(message), connector::Address("onward"), nullptr);
    return tarntest::outcomeOf(future);
}

TEST(MessageRouting, FindsTheHandlerOfEachMessage)
{
    auto transport = std::make_shared<tarntest::FakeTransport>();
    transport->serve("greeter", std::make_shared<Greeter>());
    auto request = std::make_unique<Greet>();
    request->name = "bob";
    auto greeting = transport->handle<Greeting, Greet>(std::move(request), connector::Address("greeter"));
    EXPECT_EQ(greeting.get()->text, "hello bob via http");
}

TEST(MessageRouting, RefusesInExactWords)
{
    auto greeter = std::make_shared<Greeter>();
    tarntest::MessagePtr greet = std::make_unique<Greet>();
    EXPECT_EQ(deliver(*greeter, std::move(greet)), "Service exists but is not running.");
    EXPECT_TRUE(greet) << "the message stays with the caller";

    greeter->start();
    EXPECT_EQ(
        deliver(*greeter, std::make_unique<Strange>()),
        "Incorrect message type. Expected: N9connector14ServiceMessageIN7routing15GreeterProviderEEE but "
        "found N7routing7StrangeE");
    EXPECT_EQ(
        deliver(*greeter, std::make_unique<connector::Message>()),
        "Incorrect message type. Expected: N9connector14ServiceMessageIN7routing15GreeterProviderEEE but "
        "found N9connector7MessageE");
    EXPECT_THROW(deliver(*greeter, nullptr), std::bad_typeid);

    Greet dispatcher;
    auto future = dispatcher.dispatch(greeter, std::make_unique<Count>(), connector::Address(), nullptr);
    EXPECT_EQ(tarntest::outcomeOf(future),
              "Unable to deliver to service. Incorrect message type. Expected: N7routing5GreetE but found "
              "N7routing5CountE");
    auto twin = dispatcher.dispatch(greeter, std::make_unique<Greet>(), connector::Address(), nullptr);
    EXPECT_EQ(tarntest::outcomeOf(twin),
              "Unable to deliver to service. Incorrect message type. Expected: N7routing5GreetE but found "
              "N7routing5GreetE")
        << "another object of the same type is refused as well";
    EXPECT_THROW((void)dispatcher.dispatch(greeter, nullptr, connector::Address(), nullptr), std::bad_typeid);

    greeter->stop();
    EXPECT_EQ(deliver(*greeter, std::make_unique<Greet>()), "Service exists but is not running.");

    Greeter unowned;
    unowned.start();
    EXPECT_THROW(deliver(unowned, std::make_unique<Greet>()), std::bad_weak_ptr);
}

TEST(MessageRouting, CastsTheReplyOrSaysWhatItWas)
{
    auto transport = std::make_shared<tarntest::FakeTransport>();
    auto greeter = std::make_shared<Greeter>();
    transport->serve("greeter", greeter);
    auto count = [&] {
        return transport->handle<Greeting, Count>(std::make_unique<Count>(), connector::Address("greeter"));
    };
    EXPECT_EQ(count().get(), nullptr) << "a null reply is no error";

    greeter->countReply = std::make_unique<Strange>();
    auto wrong = count();
    EXPECT_EQ(tarntest::outcomeOf(wrong),
              "Unable to cast response message type: routing::Strange to routing::Greeting");
}

} // namespace routing
