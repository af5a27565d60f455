#include "tarnd/store/Gate.h"

namespace tarnd {

bool Gate::enter(std::chrono::milliseconds limit)
{
    std::unique_lock lock(mutex);
    if (free > 0) { // then nobody waits
        --free;
        return true;
    }
    Waiting self;
    const auto place = queue.insert(queue.end(), &self);
    self.turn.wait_for(lock, limit, [&] { return self.admitted || self.turnedAway; });
    if (self.admitted) return true;
    queue.erase(place);
    return false;
}

/// The place goes to whoever waits longest: were it only set free, a newcomer could take it over and over.
void Gate::leave()
{
    const std::lock_guard lock(mutex);
    if (queue.empty()) {
        ++free;
        return;
    }
    auto& next = *queue.front();
    queue.pop_front();
    next.admitted = true;
    next.turn.notify_one();
}

void Gate::turnAway()
{
    const std::lock_guard lock(mutex);
    for (auto* waiting : queue) {
        waiting->turnedAway = true;
        waiting->turn.notify_one();
    }
}

Gate::Use Gate::use()
{
    const std::lock_guard lock(mutex);
    return {places, places - free, queue.size()};
}

} // namespace tarnd
