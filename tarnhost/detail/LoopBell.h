#pragma once

#include <curl/curl.h>

#include <atomic>
#include <mutex>

namespace connector::host::detail {

/// Calls the I/O thread to the transfers that want something of it. What they want they keep themselves, so that
/// no call is lost and many are as good as one.
class LoopBell {
public:
    explicit LoopBell(CURLM* driven) : multi(driven) {}

    /// On any thread; without effect once silenced.
    void ring()
    {
        if (rung.exchange(true)) return;
        std::lock_guard lock(mutex);
        if (multi) curl_multi_wakeup(multi);
    }

    /// I/O thread: whether anybody has rung since the last call.
    bool answer() { return rung.exchange(false); }

    /// Before the multi handle goes.
    void silence()
    {
        std::lock_guard lock(mutex);
        multi = nullptr;
    }

private:
    std::atomic<bool> rung{false};
    std::mutex mutex; ///< guards the pointer: whoever rings must not see the handle go
    CURLM* multi;
};

} // namespace connector::host::detail
