#pragma once

#include "tarnd/store/Engine.h"

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace tarnd {

/// Removes contents that no row names while the service works, on a thread of its own: at once, and again and again.
/// What fails is told on standard error, and tried again the next time.
class Sweeper {
public:
    /// @param requireOwn  called before each time; throws ServiceError when the contents are no longer this store's
    Sweeper(Engine engine, std::chrono::seconds interval, std::function<void()> requireOwn);

    /// Waits for the step under way.
    ~Sweeper();

private:
    void run();
    void sweepOnce();
    bool isEnding();

    Engine engine;
    const std::chrono::seconds interval;
    const std::function<void()> requireOwn;
    std::mutex mutex; ///< guards the member below
    bool ending = false;
    std::condition_variable end;
    std::thread thread;
};

} // namespace tarnd
