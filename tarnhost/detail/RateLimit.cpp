#include "tarnhost/detail/RateLimit.h"

#include <algorithm>

namespace connector::host::detail {
namespace {

using Seconds = std::chrono::duration<double>;

/// Of a second's bytes, what may be saved up while nothing moves.
constexpr double burst = 0.25;
constexpr double piecesPerSecond = 8;
constexpr std::uint64_t leastPiece = 1024; ///< the smallest buffer that libcurl takes

} // namespace

RateLimit::RateLimit(std::uint64_t rate) : bytesPerSecond(static_cast<double>(rate)) {}

bool RateLimit::admits(void* waiter, Time now)
{
    if (bytesPerSecond == 0) return true;
    refill(now);
    if (balance > 0) return true;
    waiting.push_back(waiter);
    return false;
}

void* RateLimit::next(Time now)
{
    if (waiting.empty()) return nullptr;
    refill(now);
    if (balance <= 0) return nullptr;
    void* const turn = waiting.front();
    waiting.pop_front();
    return turn;
}

RateLimit::Time RateLimit::due() const
{
    return filled + std::chrono::ceil<Time::duration>(Seconds(std::max(0.0, 1 - balance) / bytesPerSecond));
}

std::uint64_t RateLimit::piece() const
{
    return std::max(leastPiece, static_cast<std::uint64_t>(bytesPerSecond / piecesPerSecond));
}

void RateLimit::refill(Time now)
{
    const auto passed = filled == Time() ? burst : Seconds(now - filled).count();
    balance = std::min(balance + passed * bytesPerSecond, burst * bytesPerSecond);
    filled = now;
}

} // namespace connector::host::detail
