#include "tarnd/http/AtATime.h"

namespace tarnd {

void AtATime::setLimit(unsigned limit)
{
    const std::lock_guard lock(mutex);
    most = limit;
}

unsigned AtATime::limit() const
{
    const std::lock_guard lock(mutex);
    return most;
}

/// Counted also without a limit, since one may be set while they are under way.
AtATime::Turn AtATime::enter(std::uint64_t who)
{
    const std::lock_guard lock(mutex);
    auto& count = underWay[who];
    if (most > 0 && count >= most) return nullptr;
    ++count;
    return {static_cast<void*>(this), [this, who](void*) {
                const std::lock_guard relock(mutex);
                if (--underWay.at(who) == 0) underWay.erase(who);
            }};
}

} // namespace tarnd
