#include "cli/service/Retries.h"

#include <algorithm>
#include <random>

namespace tarncli {

using std::chrono::milliseconds;

namespace {

/// Whoever asks for a hundred retries does not want to wait for years.
constexpr milliseconds longest{60'000};

milliseconds scattered(milliseconds pause)
{
    static thread_local std::minstd_rand chance(std::random_device{}());
    return milliseconds(std::uniform_int_distribution(pause.count() / 2, pause.count() * 3 / 2)(chance));
}

} // namespace

std::optional<milliseconds> Retries::next()
{
    if (left == 0) return {};
    --left;
    const auto chosen = scattered(pause);
    pause = std::min(pause * 2, longest);
    return chosen;
}

} // namespace tarncli
