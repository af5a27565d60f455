#pragma once

#include "tarnhost/detail/HttpTransfer.h"

#include <curl/curl.h>

#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace connector::host {
class DeliveryThreads;
}

namespace connector::host::detail {

/// The I/O thread: drives all transfers and posts each, once it has an outcome, to the delivery threads.
///
/// Transfers to one origin beyond the limit wait here rather than in libcurl, where the connect timeout would
/// run while they wait.
class TransferLoop {
public:
    /// Starts the thread. @param options  outlive the loop. @throws std::runtime_error, std::system_error
    TransferLoop(std::shared_ptr<DeliveryThreads> deliveryThreads, const HttpOptions& options);
    /// As `stop`.
    ~TransferLoop();
    TransferLoop(const TransferLoop&) = delete;
    TransferLoop& operator=(const TransferLoop&) = delete;

    /// Takes a transfer over; once stopped, fails it.
    void submit(std::unique_ptr<HttpTransfer> transfer);

    /// With which streams call this thread.
    const std::shared_ptr<LoopBell>& bell() const { return callers; }

    /// Fails all transfers, phase shutdown, and ends the thread. The second call does nothing.
    void stop();

private:
    using Transfer = std::unique_ptr<HttpTransfer>;

    /// The transfers to one origin.
    struct Lane {
        unsigned active = 0;
        std::deque<Transfer> waiting;
    };

    struct FreeMulti {
        void operator()(CURLM* handle) const { curl_multi_cleanup(handle); }
    };

    void run();
    /// @return false once told to stop
    bool takeArrivals();
    /// @return whether there is nothing to do until somebody calls
    bool mayRest();
    std::chrono::milliseconds longestRest() const;
    void enqueue(Transfer transfer);
    /// Takes up the transfers whose next try is due.
    void endPauses();
    void fillLane(const std::string& origin);
    void begin(Transfer transfer);
    std::unique_ptr<EasyHandle> takeHandle();
    void keepHandle(std::unique_ptr<EasyHandle> handle);
    void collectFinished();
    void finish(CURL* handle, CURLcode outcome);
    void handOver();
    void attend();
    /// Lets those go on whose turn it is under the limits of the rate.
    void attendLimited();
    /// Ends what its callers have given up and what its deadline has ended, wherever it waits.
    void endOver();
    bool isDeadlineDue() const;
    void dropOverWaiting();
    void dropOverPausing();
    void endOverdue();
    void abandonAll();
    void abandon(Transfer transfer);
    /// As `post`, unless the transfer is to be tried again.
    void postOrPause(Transfer transfer);
    /// Hands a transfer that has its outcome to the delivery threads. I/O thread only.
    void post(Transfer transfer);

    const std::shared_ptr<DeliveryThreads> threads;
    const HttpOptions& options;
    const unsigned laneLimit;
    const std::chrono::milliseconds tick;
    std::unique_ptr<CURLM, FreeMulti> multi; ///< used by the I/O thread, but for its wake-up
    std::shared_ptr<LoopBell> callers;
    std::unordered_map<std::string, Lane> lanes;          ///< I/O thread only
    std::unordered_map<CURL*, Transfer> active;           ///< I/O thread only
    std::multimap<ExchangeClock::Time, Transfer> pausing; ///< by when they are tried again; I/O thread only
    std::vector<std::unique_ptr<EasyHandle>> idleHandles; ///< I/O thread only
    RateLimits limits;                                    ///< I/O thread only
    ExchangeClock::Time nextCheck{};                      ///< I/O thread only
    std::multiset<CallOptions::Time> deadlines;           ///< of all that is not settled; I/O thread only

    std::mutex mutex; ///< guards the three below
    std::vector<Transfer> arrivals;
    bool resting = false; ///< only a call makes the thread look at what has arrived
    bool stopped = false;

    std::mutex joining; ///< makes a second `stop` wait for the first
    std::thread thread;
};

} // namespace connector::host::detail
