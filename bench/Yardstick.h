#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <sys/resource.h>
#include <vector>

namespace connector::host::bench {

/// Measures work and, in turn with it, what it is compared with. Taking turns keeps the ratio steady on a
/// machine whose speed is not. Reports what ours takes divided by what theirs takes, each the median of all
/// rounds, so that less is better: "time ratio", and "processor ratio" for the processor time of this whole
/// process.
class Yardstick {
public:
    explicit Yardstick(benchmark::State& benchmarkState) : state(benchmarkState) {}

    /// One round: `units` of work done by `measured()`, then the same by `plain()`.
    template <class Measured, class Plain>
    void round(double units, Measured measured, Plain plain)
    {
        const Cost ours = costOf(measured);
        const Cost theirs = costOf(plain);
        state.SetIterationTime(ours.seconds);
        timeRatios.push_back(ours.seconds / theirs.seconds);
        processorRatios.push_back(ours.processorSeconds / theirs.processorSeconds);
        measuredRates.push_back(units / ours.seconds);
        plainRates.push_back(units / theirs.seconds);
    }

    void report(const std::string& unit, const std::string& measuredName, const std::string& plainName)
    {
        if (timeRatios.empty()) return; // skipped with an error
        state.counters[measuredName + " " + unit + "/s"] = median(measuredRates);
        state.counters[plainName + " " + unit + "/s"] = median(plainRates);
        state.counters["time ratio"] = median(timeRatios);
        state.counters["processor ratio"] = median(processorRatios);
    }

private:
    struct Cost {
        double seconds;
        double processorSeconds;
    };

    template <class Work>
    static Cost costOf(Work work)
    {
        const auto start = std::chrono::steady_clock::now();
        const double processorStart = processorSeconds();
        work();
        return {std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(),
                processorSeconds() - processorStart};
    }

    static double processorSeconds()
    {
        rusage usage{};
        getrusage(RUSAGE_SELF, &usage);
        const auto seconds = [](const timeval& time) {
            return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
        };
        return seconds(usage.ru_utime) + seconds(usage.ru_stime);
    }

    static double median(std::vector<double> values)
    {
        const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
        std::nth_element(values.begin(), middle, values.end());
        return *middle;
    }

    benchmark::State& state;
    std::vector<double> timeRatios;
    std::vector<double> processorRatios;
    std::vector<double> measuredRates;
    std::vector<double> plainRates;
};

} // namespace connector::host::bench
