// What may happen to one result, in every order that chance finds: it is settled and taken from two threads while a
// third cancels. Each outcome must be one that somebody brought about, each continuation run once, each value be
// destroyed once, and nobody wait for ever.
//
// TARN_SCHEDULES says how many rounds; TARN_SEED repeats those of an earlier run, as far as the machine allows.
#include "support/FakeTransport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <random>
#include <thread>
#include <vector>

namespace {

using namespace connector;
using tarntest::outcomeOf;

constexpr std::chrono::seconds patience{60};

struct Counted {
    Counted() { ++alive; }

    ~Counted() { --alive; }

    static inline std::atomic<int> alive{0};
};

using Result = std::unique_ptr<Counted>;

enum class Settling { value, exception, drop, twice };
enum class Taking { get, then, thenNothing, thenAndDrop, drop };
enum class Meddling { nothing, cancel, look };

/// One result, and what three threads do with it at once.
class Round {
public:
    explicit Round(std::mt19937_64& random)
        : settling(Settling(random() % 4)), taking(Taking(random() % 5)), meddling(Meddling(random() % 3))
    {
        for (auto& each : delays)
            each = random() % 200;
    }

    void settle()
    {
        // Made beforehand: copies of a standard exception share their text, uncounted by the sanitizer.
        auto broken = std::make_exception_ptr(std::runtime_error("broken"));
        delay(delays[0]);
        if (settling == Settling::exception) {
            promise.setException(std::move(broken));
        } else if (settling != Settling::drop) {
            promise.setValue(std::make_unique<Counted>());
            if (settling == Settling::twice && !cancelled) {
                EXPECT_THROW(promise.setValue(nullptr), std::runtime_error);
            }
        }
        Promise<Result>(std::move(promise)); // and drop it
    }

    void take()
    {
        delay(delays[1]);
        auto pass = [this](Future<Result>&& ready) {
            ++runs;
            return ready.get();
        };
        switch (taking) {
        case Taking::get:
            outcome = waitFor(future);
            break;
        case Taking::then:
            next = future.then(pass);
            attached = true;
            outcome = waitFor(next);
            break;
        case Taking::thenNothing: {
            auto end = future.then([&](Future<Result>&& ready) { pass(std::move(ready)); });
            outcome = waitFor(end);
            break;
        }
        case Taking::thenAndDrop:
            static_cast<void>(future.then(pass));
            break;
        case Taking::drop:
            static_cast<void>(Future<Result>(std::move(future)));
        }
    }

    void meddle()
    {
        delay(delays[2]);
        if (meddling == Meddling::nothing) return;
        if (taking == Taking::get) meddleWith(future);
        if (attached) meddleWith(next);
    }

    void check()
    {
        const bool continues =
            taking == Taking::then || taking == Taking::thenNothing || taking == Taking::thenAndDrop;
        EXPECT_EQ(runs, continues ? 1 : 0);
        const std::array<std::string, 4> expected{"done", "broken",
                                                  "Promise destroyed before it provided a value.", "done"};
        if (taking == Taking::thenAndDrop || taking == Taking::drop) return;
        if (cancelled && outcome == "Future has been cancelled.") return;
        EXPECT_EQ(outcome, expected[static_cast<std::size_t>(settling)]);
    }

private:
    static void delay(std::uint64_t turns)
    {
        if (turns % 8 == 0) std::this_thread::yield();
        for (std::atomic<std::uint64_t> i = 0; i < turns; ++i) {
        }
    }

    template <class T>
    static std::string waitFor(Future<T>& settled)
    {
        settled.waitFor(patience);
        return outcomeOf(settled);
    }

    void meddleWith(Future<Result>& handle)
    {
        if (meddling == Meddling::cancel) {
            cancelled = taking == Taking::get;
            handle.cancel();
            cancelled = true;
        } else {
            handle.waitFor(std::chrono::microseconds(handle.isReady() ? 0 : 1));
        }
    }

    Settling settling;
    Taking taking;
    Meddling meddling;
    std::array<std::uint64_t, 3> delays{};
    Promise<Result> promise;
    Future<Result> future = promise.getFuture();
    Future<Result> next;
    std::atomic<bool> attached{false};
    std::atomic<bool> cancelled{false};
    std::atomic<int> runs{0};
    std::string outcome;
};

std::uint64_t fromEnvironment(const char* name, std::uint64_t otherwise)
{
    const char* value = std::getenv(name);
    return value ? std::stoull(value) : otherwise;
}

/// Rounds that three threads go through side by side. None is far ahead of another, and none waits at each step, so
/// that on a busy machine a turn on the processor is worth many rounds.
class Batch {
public:
    Batch(std::mt19937_64& random, std::size_t count)
    {
        for (std::size_t i = 0; i < count; ++i)
            rounds.push_back(std::make_unique<Round>(random));
    }

    void run()
    {
        std::jthread producer([this] { work(0, &Round::settle); });
        std::jthread bystander([this] { work(1, &Round::meddle); });
        work(2, &Round::take);
    }

    void check()
    {
        for (const auto& round : rounds)
            round->check();
        rounds.clear();
        EXPECT_EQ(Counted::alive, 0);
    }

private:
    static constexpr std::size_t lead = 32;

    void work(std::size_t self, void (Round::*part)())
    {
        for (auto& round : rounds) {
            while (std::min({progress[0].load(), progress[1].load(), progress[2].load()}) + lead <
                   progress[self])
                std::this_thread::yield();
            ((*round).*part)();
            ++progress[self];
        }
    }

    std::vector<std::unique_ptr<Round>> rounds;
    std::array<std::atomic<std::size_t>, 3> progress{};
};

TEST(Future, KeepsItsWordInEverySchedule)
{
    const auto seed = fromEnvironment("TARN_SEED", std::random_device()());
    const auto rounds = fromEnvironment("TARN_SCHEDULES", 2'000);
    SCOPED_TRACE("TARN_SEED=" + std::to_string(seed));
    std::cout << "TARN_SEED=" << seed << " TARN_SCHEDULES=" << rounds << std::endl;
    std::mt19937_64 random(seed);
    constexpr std::uint64_t batchSize = 1'000;
    for (std::uint64_t done = 0; done < rounds && !testing::Test::HasFailure(); done += batchSize) {
        Batch batch(random, std::min(batchSize, rounds - done));
        batch.run();
        batch.check();
    }
}

} // namespace
