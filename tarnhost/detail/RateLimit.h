#pragma once

#include <chrono>
#include <cstdint>
#include <deque>

namespace connector::host::detail {

/// The bytes per second that all transfers of a loop share in one direction. Whoever has a piece to move asks first, and
/// moves all of it or waits its turn; a piece may overdraw what there is, and the next one then comes later. In the loop's turn
/// only.
class RateLimit {
public:
    using Time = std::chrono::steady_clock::time_point;

    /// @param rate  bytes per second; 0: no limit
    explicit RateLimit(std::uint64_t rate);

    /// Whether a piece may be moved now; if not, `waiter` is queued.
    bool admits(void* waiter, Time now);

    void take(std::uint64_t bytes) { balance -= static_cast<double>(bytes); }

    /// Takes whose turn has come out of the queue; null: nobody's.
    void* next(Time now);

    bool hasWaiting() const { return !waiting.empty(); }

    /// When the next turn comes.
    Time due() const;

    /// What one piece should hold at most, so that turns come several times a second.
    std::uint64_t piece() const;

private:
    void refill(Time now);

    const double bytesPerSecond;
    double balance = 0; ///< bytes; below zero after an overdraft
    Time filled{};      ///< when `balance` was true
    std::deque<void*> waiting;
};

struct RateLimits {
    RateLimit sending;
    RateLimit receiving;
};

} // namespace connector::host::detail
