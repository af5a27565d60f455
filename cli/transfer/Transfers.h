#pragma once

#include "cli/service/Connection.h"
#include "cli/terminal/Failure.h"
#include "cli/transfer/MovedBytes.h"
#include "tarn/foundation/Future.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarncli {

class Output;

/// One of many requests.
struct Transfer {
    std::string what;        ///< named in front of its failure
    std::string item = {};   ///< in the service, as Failure::item()
    std::uint64_t bytes = 0; ///< of content that it moves, here or there
    /// Sends the request. Called on the thread of run(), and again when the session had ended, after an interruption,
    /// or when `mayRepeat` says so; what its continuations use must live on their own. What it throws fails this
    /// transfer only.
    std::function<connector::Future<bool>()> start;
    /// Called on the thread of run() after success; may add transfers.
    std::function<void()> succeeded = [] {};
    /// Called on the thread of run() after the first failure; true: try once more. What it throws is the
    /// failure then.
    std::function<bool(const std::exception_ptr&)> mayRepeat = [](const std::exception_ptr&) {
        return false;
    };
    /// Called on the thread of run(), after a pause, when the connection was lost and nobody knows whether the change
    /// was made. True: it was. False: it was not, and is sent again. Nothing: nobody can tell, and that is the failure.
    std::function<std::optional<bool>()> wasDone = [] { return std::optional<bool>(); };
    /// Called on the thread of run() after a failure for good that nothing forgives. What it throws, if it does, is the
    /// failure then.
    std::function<void(const std::exception_ptr&)> failed = [](const std::exception_ptr&) {};
    /// Called on the thread of run() after a failure; true: the failure is forgiven, and counts as success.
    std::function<bool(const std::exception_ptr&)> forgives = [](const std::exception_ptr&) { return false; };
};

/// What has become of all of them.
struct TransferReport {
    struct Failed {
        std::string what;
        Failure failure;  ///< names `what`, too
        bool told = true; ///< false: nobody has been told of it yet
    };

    std::uint64_t done = 0;
    std::vector<Failed> failed;
    std::uint64_t notStarted = 0; ///< given up because the service or the session was gone
};

/// Sends requests with a bounded number of them in flight.
///
/// Everything but the requests' own continuations happens on the thread that calls run(). A session that ends
/// in the middle is renewed once for all, and the requests it was refused to are sent again. What was interrupted is
/// tried again after a pause, in which nothing new is started; a change that may have been made is looked at before.
/// Nothing else is sent twice, unless a transfer asks for it. Once the service cannot be reached any more, nothing
/// further is started.
class Transfers {
public:
    /// @param movedBytes  what the progress shows
    Transfers(Connection& openConnection, Output& output, MovedBytes movedBytes = countFromZero());

    void add(Transfer transfer);
    /// Ahead of all that waits.
    void addFirst(Transfer transfer);

    /// Runs all that was added, and all that is added meanwhile, to the end. Failures are told as they come,
    /// but not that of a single transfer, which is left to the caller.
    TransferReport run();

private:
    using Clock = std::chrono::steady_clock;

    struct Entry {
        Transfer transfer;
        Retries retries;
        unsigned logins = 0;           ///< of the connection when it was sent
        bool repeated = false;         ///< because the session had ended, or the transfer asked for it
        std::exception_ptr error = {}; ///< the last interruption; empty: it was sent to its end, or never
        Clock::time_point notBefore = {};
    };

    struct Settled;

    unsigned loadOf(const Transfer& transfer) const;
    bool mayStart() const;
    void startNext();
    bool isDoneAlready(Entry& entry);
    void settle(std::unique_ptr<Entry> entry, std::exception_ptr error);
    void conclude(const Entry& entry, const std::exception_ptr& error);
    void repeat(std::unique_ptr<Entry> entry);
    bool repeatsLater(std::unique_ptr<Entry>& entry, const std::exception_ptr& error);
    void renewSession(std::unique_ptr<Entry> entry);
    void fail(const Entry& entry, std::exception_ptr error);
    void giveUp();

    Connection& connection;
    Output& out;
    MovedBytes moved;
    std::deque<Entry> waiting;
    std::uint64_t added = 0;
    unsigned load =
        0; ///< of those in flight: 1 for a short one, for any other as many as may go in its place
    unsigned unreachable = 0; ///< that have failed so
    bool abandoned = false;
    TransferReport report;
    std::shared_ptr<Settled> settled; ///< shared with continuations that may come late
};

} // namespace tarncli
