#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>

namespace tarnd {

/// How long something took, counted in buckets. All calls may run on any thread; none blocks.
class Histogram {
public:
    /// Seconds up to which a bucket counts; one more takes what lasted longer.
    static constexpr std::array bounds{0.0001, 0.00025, 0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025,
                                       0.05,   0.1,     0.25,   0.5,   1.0,    2.5,   10.0};

    struct Counts {
        std::array<std::uint64_t, bounds.size() + 1> buckets{}; ///< each for itself, not summed up
        double seconds = 0;                                     ///< all together
    };

    void add(std::chrono::steady_clock::duration took)
    {
        const auto seconds = std::chrono::duration<double>(took).count();
        std::size_t bucket = 0;
        while (bucket < bounds.size() && seconds > bounds[bucket])
            ++bucket;
        buckets[bucket].fetch_add(1, std::memory_order_relaxed);
        nanoseconds.fetch_add(static_cast<std::uint64_t>(std::chrono::nanoseconds(took).count()),
                              std::memory_order_relaxed);
    }

    Counts counts() const
    {
        Counts now;
        for (std::size_t i = 0; i < now.buckets.size(); ++i)
            now.buckets[i] = buckets[i].load(std::memory_order_relaxed);
        now.seconds = static_cast<double>(nanoseconds.load(std::memory_order_relaxed)) / 1e9;
        return now;
    }

private:
    std::array<std::atomic<std::uint64_t>, bounds.size() + 1> buckets{};
    std::atomic<std::uint64_t> nanoseconds{};
};

/// Adds the time from its construction to its end.
class Stopwatch {
public:
    explicit Stopwatch(Histogram& histogram) : histogram(histogram) {}

    ~Stopwatch() { histogram.add(std::chrono::steady_clock::now() - started); }

    Stopwatch(const Stopwatch&) = delete;
    Stopwatch& operator=(const Stopwatch&) = delete;

private:
    Histogram& histogram;
    const std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();
};

} // namespace tarnd
