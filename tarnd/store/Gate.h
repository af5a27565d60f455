#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <list>
#include <mutex>

namespace tarnd {

/// Lets a limited number of threads in at a time, first come, first served, and lets none wait for ever.
/// All calls may run on any thread.
class Gate {
public:
    explicit Gate(std::size_t places) : places(places), free(places) {}

    /// Takes a place. False when none became free within `limit`, or turnAway() was called meanwhile.
    bool enter(std::chrono::milliseconds limit);

    /// Gives the place back. @pre enter() returned true
    void leave();

    /// Ends the waiting of all who wait now.
    void turnAway();

    struct Use {
        std::size_t places = 0;
        std::size_t taken = 0;
        std::size_t waiting = 0;
    };

    Use use();

private:
    struct Waiting {
        std::condition_variable turn;
        bool admitted = false;
        bool turnedAway = false;
    };

    const std::size_t places;
    std::mutex mutex; ///< guards all below
    std::size_t free;
    std::list<Waiting*> queue;
};

} // namespace tarnd
