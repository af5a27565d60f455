#pragma once

#include "tarnd/http/Routes.h"
#include "tarnd/store/Histogram.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace tarnd {

/// A number of things that come and go.
using Gauge = std::atomic<std::int64_t>;

/// Counts as one of them as long as it exists.
class Counted {
public:
    explicit Counted(Gauge& gauge) : gauge(gauge) { ++gauge; }

    ~Counted() { --gauge; }

    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;

private:
    Gauge& gauge;
};

/// What the service has done since it started. All calls may run on any thread; counting blocks nobody.
class Metrics {
public:
    Metrics();

    /// @param route  null: none took the request
    /// @param status  0: its client left before the reply
    /// @param received, sent  bytes of the bodies
    void ended(const Route* route, unsigned status, std::chrono::steady_clock::duration took,
               std::uint64_t received, std::uint64_t sent);

    Gauge connections{0};
    Gauge requests{0};
    Gauge uploads{0};
    Gauge downloads{0};

    /// All of it, with what the storage counts, in the text format of Prometheus.
    std::string text(const Store::Numbers& storage) const;

private:
    /// By status from 200 on; the first is for requests without a reply.
    static constexpr std::size_t statuses = 400;

    struct OfRoute {
        Histogram durations;
        std::array<std::atomic<std::uint64_t>, statuses> byStatus{};
    };

    std::vector<OfRoute> routes; ///< as in the table; one more for requests that lead nowhere
    std::atomic<std::uint64_t> received{0}, sent{0};
    const std::int64_t started; ///< seconds since 1970, UTC
};

} // namespace tarnd
