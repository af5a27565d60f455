#pragma once

#include "tarnhost/RequestObserver.h"

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

namespace connector::host {

/// Counts requests, and says what it counted in the text format of Prometheus.
class TARN_API CountingObserver : public RequestObserver {
public:
    void started(const ObservedRequest& request) override;
    void attempted(const ObservedRequest& request, const ObservedAttempt& attempt) override;
    void finished(const ObservedRequest& request, const ObservedResult& result) override;

    /// For a page of metrics: tarn_client_requests_in_flight; tarn_client_requests_total by operation and status, which
    /// is "failed" where no complete reply came; and by operation tarn_client_tries_total,
    /// tarn_client_sent_bytes_total, tarn_client_received_bytes_total and the histogram
    /// tarn_client_request_duration_seconds. On any thread.
    std::string text() const;

private:
    static constexpr std::array<double, 8> bounds{0.005, 0.02, 0.1, 0.5, 2, 10, 60, 600}; ///< seconds

    struct Operation {
        std::map<std::string, std::uint64_t> byStatus;
        std::uint64_t tries = 0;
        std::uint64_t sent = 0;
        std::uint64_t received = 0;
        std::array<std::uint64_t, bounds.size()> withinBound{};
        std::uint64_t finished = 0;
        double seconds = 0;
    };

    mutable std::mutex mutex; ///< guards the two below
    std::map<std::string, Operation> operations;
    std::uint64_t inFlight = 0;
};

} // namespace connector::host
