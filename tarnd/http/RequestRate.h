#pragma once

#include "tarnd/http/ClientAddress.h"

#include <chrono>
#include <mutex>
#include <unordered_map>

namespace tarnd {

/// How many requests an address may make in a second: that many at once, and then as time goes by. Callable from
/// any thread.
class RequestRate {
public:
    /// Set it before the first request. @param requests  a second; 0: any number
    void setLimit(unsigned requests) { limit = requests; }

    /// Counts a request. False: the address has had its share, and has another one within a second.
    bool admit(ClientAddress client);

private:
    using Clock = std::chrono::steady_clock;

    struct Share {
        double left;
        Clock::time_point counted;
    };

    void refill(Share& share, Clock::time_point now) const;
    void forgetTheQuiet(Clock::time_point now);

    unsigned limit = 0;
    std::mutex mutex; ///< guards the member below
    std::unordered_map<ClientAddress, Share> shares;
};

} // namespace tarnd
