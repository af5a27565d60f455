#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <string>

namespace connector::host::bench {

/// Times what is measured and, in turn with it, what it is compared with; prints both rates and their ratio
/// on one line. Taking turns keeps the ratio steady on a machine whose speed is not.
class Yardstick {
public:
    explicit Yardstick(benchmark::State& benchmarkState) : state(benchmarkState) {}

    /// One round: `units` of work done by `measured()`, then the same by `plain()`.
    template <class Measured, class Plain>
    void round(double units, Measured measured, Plain plain)
    {
        const double seconds = timed(measured);
        state.SetIterationTime(seconds);
        measuredSeconds += seconds;
        plainSeconds += timed(plain);
        total += units;
    }

    void report(const std::string& unit, const std::string& measuredName, const std::string& plainName)
    {
        state.counters[measuredName + " " + unit + "/s"] = total / measuredSeconds;
        state.counters[plainName + " " + unit + "/s"] = total / plainSeconds;
        state.counters["ratio"] = plainSeconds / measuredSeconds;
    }

private:
    template <class Work>
    static double timed(Work work)
    {
        const auto start = std::chrono::steady_clock::now();
        work();
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }

    benchmark::State& state;
    double measuredSeconds = 0;
    double plainSeconds = 0;
    double total = 0;
};

} // namespace connector::host::bench
