#pragma once

#include "tarnhost/DeliveryThreads.h"
#include "tarnhost/detail/HttpTransfer.h"
#include "tarnhost/detail/SocketWatch.h"

#include <curl/curl.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace connector::host::detail {

/// Drives all transfers and posts each, once it has an outcome, to the delivery threads.
///
/// One thread at a time has its turn: the delivery thread that waits for the sockets, or one that submits, which spares
/// a request the way to another thread. Nothing foreign runs in a turn.
///
/// Transfers to one origin beyond the limit wait here rather than in libcurl, where the connect timeout would
/// run while they wait. One that stands still for want of demand or of items does not count: what it waits for may
/// be among those that wait here.
class TransferLoop final : DeliveryThreads::Watch {
public:
    /// Begins at once. @param options  outlive the loop. @throws std::runtime_error, std::system_error
    TransferLoop(std::shared_ptr<DeliveryThreads> deliveryThreads, const HttpOptions& options);
    /// As `stop`.
    ~TransferLoop();
    TransferLoop(const TransferLoop&) = delete;
    TransferLoop& operator=(const TransferLoop&) = delete;

    /// Takes a transfer over; once stopped, fails it.
    void submit(std::unique_ptr<HttpTransfer> transfer);

    /// With which streams call for a turn.
    const std::shared_ptr<LoopBell>& bell() const { return callers; }

    /// Fails all transfers, phase shutdown. The second call does nothing.
    void stop();

private:
    using Transfer = std::unique_ptr<HttpTransfer>;
    using Time = ExchangeClock::Time;

    /// The transfers to one origin.
    struct Lane {
        unsigned active = 0; ///< but for `vacated`
        std::deque<Transfer> waiting;
    };

    struct FreeMulti {
        void operator()(CURLM* handle) const { curl_multi_cleanup(handle); }
    };

    static int onSocket(CURL* handle, curl_socket_t socket, int wish, void* self, void* ofSocket);
    static int onTimer(CURLM* handle, long milliseconds, void* self);

    void wait() override;

    void interrupt() override { callers->wake(); }

    /// Has what has arrived begun on this thread, unless another is about to.
    void driveArrivals();
    bool hasArrivals();
    /// One round of everything. @return false once told to stop
    bool drive(const std::vector<SocketWatch::Ready>& ready);
    void moveOn(const std::vector<SocketWatch::Ready>& ready);
    bool isTimerDue() const;
    /// @return false once told to stop
    bool takeArrivals();
    /// When there is something to do though nobody calls.
    Time due() const;
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
    void attendAll(CURLcode (HttpTransfer::*step)());
    /// Lets those go on whose turn it is under the limits of the rate.
    void attendLimited();
    /// Ends what its callers have given up and what its deadline has ended, wherever it waits.
    void endOver();
    bool isDeadlineDue() const;
    void dropOverWaiting();
    void dropOverPausing();
    void endOverdue();
    /// Gives the place of a transfer to the next that waits; it goes on without one.
    void vacate(CURL* handle);
    void abandonAll();
    void abandon(Transfer transfer);
    /// As `post`, unless the transfer is to be tried again.
    void postOrPause(Transfer transfer);
    /// Hands a transfer that has its outcome to the delivery threads.
    void post(Transfer transfer);

    const std::shared_ptr<DeliveryThreads> threads;
    const HttpOptions& options;
    const unsigned laneLimit;
    const std::chrono::milliseconds tick;
    const std::shared_ptr<LoopBell> callers;

    std::mutex driving; ///< guards all down to the next one
    SocketWatch sockets;
    std::unique_ptr<CURLM, FreeMulti> multi;
    std::optional<Time> timer; ///< when libcurl wants to be called though no socket is ready
    Time restUntil{};          ///< when the thread at the sockets looks again, if nobody wakes it
    Time lastWork{};           ///< when there was something to do
    std::unordered_map<std::string, Lane> lanes;
    std::unordered_map<CURL*, Transfer> active;
    std::unordered_set<CURL*> vacated;     ///< those of them that do not count in their lanes
    std::multimap<Time, Transfer> pausing; ///< by when they are tried again
    std::vector<std::unique_ptr<EasyHandle>> idleHandles;
    RateLimits limits;
    Time nextCheck{};
    std::multiset<CallOptions::Time> deadlines; ///< of all that is not settled

    std::atomic<bool> writesTls{false}; ///< since the first transfer that does

    std::mutex mutex; ///< guards the two below
    std::vector<Transfer> arrivals;
    bool stopped = false;

    std::mutex stopping; ///< makes a second `stop` wait for the first
};

} // namespace connector::host::detail
