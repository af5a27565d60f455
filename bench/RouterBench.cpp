// Messages per second through the router, beside calling the provider at once.
#include "Yardstick.h"

#include "tarnhost/DeliveryThreads.h"
#include "tarnhost/Router.h"

#include <vector>

namespace connector::host::bench {
namespace {

constexpr int messages = 20'000;

/// Sends each message back.
class Echo : public ServiceProvider {
public:
    Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&& message, Address&&,
                                             std::shared_ptr<Context>&&) override
    {
        return makeReadyFuture(std::move(message));
    }
};

template <class Send>
void exchangeAll(Send send)
{
    std::vector<Future<std::unique_ptr<Message>>> replies;
    replies.reserve(messages);
    for (int i = 0; i < messages; ++i)
        replies.push_back(send(std::make_unique<Message>()));
    for (auto& reply : replies)
        benchmark::DoNotOptimize(reply.get());
}

void messagesThroughTheRouter(benchmark::State& state)
{
    auto threads = std::make_shared<DeliveryThreads>();
    auto router = std::make_shared<Router>(threads);
    auto echo = std::make_shared<Echo>();
    router->registerProvider(Address("echo"), echo);
    Yardstick yardstick(state);
    for (auto _ : state) {
        yardstick.round(
            messages,
            [&] {
                exchangeAll([&](auto message) { return router->send(std::move(message), Address("echo")); });
            },
            [&] {
                exchangeAll(
                    [&](auto message) { return echo->deliver(std::move(message), Address(), router); });
            });
    }
    yardstick.report("messages", "router", "direct");
    router->close();
    threads->drain();
}

BENCHMARK(messagesThroughTheRouter)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace
} // namespace connector::host::bench
