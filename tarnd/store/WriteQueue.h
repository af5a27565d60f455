#pragma once

#include <chrono>
#include <condition_variable>
#include <exception>
#include <functional>
#include <list>
#include <mutex>
#include <vector>

namespace tarnd {

class Transaction;

/// Writes that wait for the one under way. Whoever comes to lead runs its own write and those that wait by then in
/// one transaction, so that one sync serves all; the others sleep until it tells them how theirs ended. First come,
/// first served. All calls may run on any thread.
class WriteQueue {
public:
    using Work = std::function<void(Transaction&)>;

    /// One write, on the stack of the thread that waits for it.
    class Entry {
    public:
        explicit Entry(const Work& work) : work(work) {}

        const Work& work;
        std::exception_ptr failure; ///< set by whoever leads; none: the change is on the disk

    private:
        friend WriteQueue;

        enum class State { waiting, leading, taken, done, turnedAway };
        State state = State::waiting;
        std::condition_variable changed;
    };

    /// Waits for the turn. True: the caller leads, and must call finish(). False: somebody else has run it.
    /// @throws ServiceError unavailable when the turn does not come within `limit`, or after turnAway()
    bool enter(Entry& entry, std::chrono::milliseconds limit);

    /// The next write that waits, to be run in the leader's transaction; nullptr when there is none.
    Entry* join();

    /// Wakes those who joined and passes the lead on.
    void finish(const std::vector<Entry*>& joined);

    /// Ends the waiting of all who wait for their turn now.
    void turnAway();

    /// How many wait for their turn.
    std::size_t waitingNow();

private:
    std::mutex mutex; ///< guards all below, and the states
    bool isLed = false;
    std::list<Entry*> waiting;
};

} // namespace tarnd
