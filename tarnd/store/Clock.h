#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

namespace tarnd {

/// Milliseconds since 1970, UTC. Callable from any thread.
using Clock = std::function<std::int64_t()>;

inline std::int64_t systemTime()
{
    using namespace std::chrono;
    return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
}

} // namespace tarnd
