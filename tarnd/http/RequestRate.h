#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <unordered_map>

namespace tarnd {

/// How many requests an address or a user may make in a second: that many at once, and then as time goes by. Callable
/// from any thread.
class RequestRate {
public:
    /// Holds from the next request on. @param requests  a second; 0: any number
    void setLimit(unsigned requests) { limit = requests; }

    bool isOn() const { return limit != 0; }

    /// Counts a request. False: who asks has had their share, and has another one within a second.
    bool admit(std::uint64_t who);

private:
    using Clock = std::chrono::steady_clock;

    struct Share {
        double left;
        Clock::time_point counted;
    };

    static void refill(Share& share, Clock::time_point now, unsigned most);
    void forgetTheQuiet(Clock::time_point now);

    std::atomic<unsigned> limit = 0;
    std::mutex mutex; ///< guards the member below
    std::unordered_map<std::uint64_t, Share> shares;
};

} // namespace tarnd
