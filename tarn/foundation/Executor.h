#pragma once

#include <functional>

namespace connector {

/// Runs a job later, on a thread of its choice, and once: how an event loop takes work. A job that it drops fails its
/// future with "Promise destroyed before it provided a value.", and what it throws fails the future as it is. The loop
/// outlives the host, which may still be posting.
///
///     Executor onMyLoop = [&](std::function<void()> job) { loop.post(std::move(job)); };
using Executor = std::function<void(std::function<void()>)>;

} // namespace connector
