#include "tarnd/http/RequestRate.h"

#include <algorithm>

namespace tarnd {

namespace {

/// So many take a few hundred kilobytes; then those that have been quiet go.
constexpr std::size_t many = 10'000;

} // namespace

bool RequestRate::admit(std::uint64_t who)
{
    const auto most = limit.load();
    if (most == 0) return true;
    const auto now = Clock::now();
    const std::lock_guard lock(mutex);
    if (shares.size() >= many) forgetTheQuiet(now);
    auto& share = shares.try_emplace(who, Share{static_cast<double>(most), now}).first->second;
    refill(share, now, most);
    if (share.left < 1) return false;
    share.left -= 1;
    return true;
}

void RequestRate::refill(Share& share, Clock::time_point now, unsigned most)
{
    const auto passed = std::chrono::duration<double>(now - share.counted).count();
    share.left = std::min<double>(most, share.left + passed * most);
    share.counted = now;
}

/// Whose share is full again is as one who has never come.
void RequestRate::forgetTheQuiet(Clock::time_point now)
{
    std::erase_if(shares,
                  [&](const auto& entry) { return now - entry.second.counted > std::chrono::seconds(1); });
}

} // namespace tarnd
