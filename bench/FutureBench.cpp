// A promise, a continuation, its value set and fetched, and a chain of ten, beside boost::future.
#define BOOST_THREAD_PROVIDES_FUTURE
#define BOOST_THREAD_PROVIDES_FUTURE_CONTINUATION
#include "Yardstick.h"

#include "tarn/foundation/Promise.h"

#include <boost/thread/future.hpp>

namespace connector::host::bench {
namespace {

constexpr int rounds = 20'000; // in a turn, so that the clock is read rarely

template <class Work>
void repeat(Work work)
{
    for (int i = 0; i < rounds; ++i)
        work();
}

int ours(int links)
{
    Promise<int> promise;
    auto future = promise.getFuture();
    for (int i = 0; i < links; ++i)
        future = future.then([](Future<int>&& ready) { return ready.get() + 1; });
    promise.setValue(1);
    return future.get();
}

int theirs(int links)
{
    boost::promise<int> promise;
    auto future = promise.get_future();
    for (int i = 0; i < links; ++i)
        future = future.then(boost::launch::sync, [](boost::future<int> ready) { return ready.get() + 1; });
    promise.set_value(1);
    return future.get();
}

void continuations(benchmark::State& state)
{
    const auto links = static_cast<int>(state.range(0));
    Yardstick yardstick(state);
    for (auto _ : state) {
        yardstick.round(
            rounds, [&] { repeat([&] { benchmark::DoNotOptimize(ours(links)); }); },
            [&] { repeat([&] { benchmark::DoNotOptimize(theirs(links)); }); });
    }
    yardstick.report("chains", "tarn", "boost");
}

BENCHMARK(continuations)->Arg(1)->Arg(10)->UseManualTime()->Unit(benchmark::kMillisecond);

} // namespace
} // namespace connector::host::bench
