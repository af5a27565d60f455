#pragma once

#include "tarn/foundation/CallOptions.h"
#include "tarnhost/HttpOptions.h"
#include "tarnhost/RequestObserver.h"
#include "tarnhost/detail/OrderedJobs.h"
#include "tarnhost/detail/UrlParts.h"

#include <curl/curl.h>

#include <memory>
#include <string>

namespace connector::host::detail {

/// Tells the progress callback and the observers how one exchange goes. Foreign code runs in jobs of its own, in the
/// order in which things happen, and what it throws disturbs nothing.
class ExchangeReport {
public:
    /// @return null when nobody wants to hear
    static std::unique_ptr<ExchangeReport> of(const UrlParts& target, const std::string& url,
                                              const std::string& method, const SharedCallOptions& call,
                                              const std::shared_ptr<const HttpOptions>& options,
                                              const std::shared_ptr<DeliveryThreads>& threads);

    /// What has to follow the calls made so far.
    OrderedJobs& order() { return *jobs; }

    // In the loop's turn.

    /// A try has its place among the connections.
    void beginTry();
    /// Bodies may have moved.
    void progressed(const TransferProgress& now);
    /// Before the handle of a try goes.
    void measure(CURL* handle);
    /// A try has failed, and another will follow.
    void endTry(std::uint16_t status, const TransferProgress& moved, std::string failure,
                std::chrono::milliseconds pause);

    // In a job of `order`.

    void finish(std::uint16_t status, const TransferProgress& moved, std::string failure,
                bool mayHaveHappened);

private:
    using Clock = std::chrono::steady_clock;

    struct Listeners;

    ExchangeReport(const UrlParts& target, const std::string& url, const std::string& method,
                   const SharedCallOptions& call, const std::shared_ptr<const HttpOptions>& options,
                   const std::shared_ptr<DeliveryThreads>& threads);
    void complete(std::uint16_t status, const TransferProgress& moved, std::string failure);

    const std::shared_ptr<OrderedJobs> jobs;
    const std::shared_ptr<const Listeners> listeners;
    const Clock::time_point begun = Clock::now();
    Clock::time_point waitingSince = begun;
    Clock::time_point toldAt{};
    TransferProgress told;
    ObservedAttempt attempt;
    ObservedResult result;
};

} // namespace connector::host::detail
