#include "cli/service/Retries.h"

#include "tarnhost/RetryPolicy.h"

namespace tarncli {

std::optional<std::chrono::milliseconds> Retries::next()
{
    if (left == 0) return {};
    --left;
    const auto chosen = connector::host::RetryPolicy::scattered(pause);
    pause = connector::host::RetryPolicy().following(pause);
    return chosen;
}

} // namespace tarncli
