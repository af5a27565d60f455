#include "tarn/foundation/RetryPolicy.h"

#include <algorithm>
#include <random>

namespace connector {

using std::chrono::milliseconds;

milliseconds RetryPolicy::scattered(milliseconds pause)
{
    static thread_local std::minstd_rand chance(std::random_device{}());
    return milliseconds(std::uniform_int_distribution(pause.count() / 2, pause.count() * 3 / 2)(chance));
}

milliseconds RetryPolicy::following(milliseconds pause) const
{
    return std::min(pause * 2, longestPause);
}

} // namespace connector
