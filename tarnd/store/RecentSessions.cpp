#include "tarnd/store/RecentSessions.h"

namespace tarnd {

namespace {

/// A few mebibytes; who is forgotten is looked up again.
constexpr std::size_t most = 10'000;

} // namespace

std::optional<Caller> RecentSessions::find(const std::string& key, std::int64_t since,
                                           std::int64_t until) const
{
    const std::lock_guard lock(mutex);
    const auto found = sessions.find(key);
    if (found == sessions.end() || found->second.used <= since || found->second.used > until) return {};
    auto caller = found->second.caller;
    caller.isAssumed = true;
    return caller;
}

void RecentSessions::remember(const Caller& caller, std::int64_t used)
{
    const std::lock_guard lock(mutex);
    if (sessions.size() >= most) sessions.clear();
    sessions.insert_or_assign(caller.sessionKey, Recent{caller, used});
}

void RecentSessions::forget(const std::string& key)
{
    const std::lock_guard lock(mutex);
    sessions.erase(key);
}

} // namespace tarnd
