#include "tarnd/http/RequestRate.h"

#include <algorithm>

namespace tarnd {

namespace {

/// So many addresses take a few hundred kilobytes; then those that have been quiet go.
constexpr std::size_t manyAddresses = 10'000;

} // namespace

bool RequestRate::admit(ClientAddress client)
{
    if (limit == 0) return true;
    const auto now = Clock::now();
    const std::lock_guard lock(mutex);
    if (shares.size() >= manyAddresses) forgetTheQuiet(now);
    auto& share = shares.try_emplace(client, Share{static_cast<double>(limit), now}).first->second;
    refill(share, now);
    if (share.left < 1) return false;
    share.left -= 1;
    return true;
}

void RequestRate::refill(Share& share, Clock::time_point now) const
{
    const auto passed = std::chrono::duration<double>(now - share.counted).count();
    share.left = std::min<double>(limit, share.left + passed * limit);
    share.counted = now;
}

/// Whose share is full again is as one who has never come.
void RequestRate::forgetTheQuiet(Clock::time_point now)
{
    std::erase_if(shares,
                  [&](const auto& entry) { return now - entry.second.counted > std::chrono::seconds(1); });
}

} // namespace tarnd
