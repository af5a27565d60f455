#include "tarn/foundation/RetryPolicy.h"

#include <algorithm>
#include <random>

namespace connector {

using std::chrono::milliseconds;

milliseconds RetryPolicy::scattered(milliseconds pause)
{
    static thread_local std::minstd_rand chance(std::random_device{}());
    const auto middle = std::max(pause, milliseconds(0)).count();
    return milliseconds(std::uniform_int_distribution(middle / 2, middle * 3 / 2)(chance));
}

milliseconds RetryPolicy::following(milliseconds pause) const
{
    return std::min(pause * 2, longestPause);
}

} // namespace connector
