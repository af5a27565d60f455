#include "cli/service/Retries.h"

#include "tarn/foundation/RetryPolicy.h"

namespace tarncli {

std::optional<std::chrono::milliseconds> Retries::next()
{
    if (left == 0) return {};
    --left;
    const auto chosen = connector::RetryPolicy::scattered(pause);
    pause = connector::RetryPolicy().following(pause);
    return chosen;
}

} // namespace tarncli
