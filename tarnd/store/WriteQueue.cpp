#include "tarnd/store/WriteQueue.h"

#include "tarnd/store/Sentences.h"

namespace tarnd {

bool WriteQueue::enter(Entry& entry, std::chrono::milliseconds limit)
{
    std::unique_lock lock(mutex);
    if (!isLed) return isLed = true; // then nobody waits
    const auto place = waiting.insert(waiting.end(), &entry);
    entry.changed.wait_for(lock, limit, [&] { return entry.state != Entry::State::waiting; });
    if (entry.state == Entry::State::waiting || entry.state == Entry::State::turnedAway) {
        waiting.erase(place);
        throw sentences::busy();
    }
    // Once it is taken there is no way back: the leader works with what is on this thread's stack.
    entry.changed.wait(lock, [&] { return entry.state != Entry::State::taken; });
    return entry.state == Entry::State::leading;
}

WriteQueue::Entry* WriteQueue::join()
{
    const std::lock_guard lock(mutex);
    for (auto place = waiting.begin(); place != waiting.end(); ++place) {
        auto* const entry = *place;
        if (entry->state != Entry::State::waiting) continue; // turned away, and about to leave by itself
        waiting.erase(place);
        entry->state = Entry::State::taken;
        return entry;
    }
    return nullptr;
}

void WriteQueue::finish(const std::vector<Entry*>& joined)
{
    const std::lock_guard lock(mutex);
    for (auto* entry : joined) {
        entry->state = Entry::State::done;
        entry->changed.notify_one();
    }
    isLed = false;
    for (auto place = waiting.begin(); place != waiting.end(); ++place) {
        auto* const entry = *place;
        if (entry->state != Entry::State::waiting) continue;
        waiting.erase(place);
        entry->state = Entry::State::leading;
        entry->changed.notify_one();
        isLed = true;
        return;
    }
}

void WriteQueue::turnAway()
{
    const std::lock_guard lock(mutex);
    for (auto* entry : waiting) {
        entry->state = Entry::State::turnedAway;
        entry->changed.notify_one();
    }
}

std::size_t WriteQueue::waitingNow()
{
    const std::lock_guard lock(mutex);
    return waiting.size();
}

} // namespace tarnd
