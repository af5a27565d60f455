#pragma once

#include <functional>

namespace connector {

/// Runs a job later, on a thread of its choice: how an event loop takes work. It must call the job once; a job that it
/// drops fails the future behind it with "Promise destroyed before it provided a value.".
///
///     Executor onMyLoop = [&](std::function<void()> job) { loop.post(std::move(job)); };
using Executor = std::function<void(std::function<void()>)>;

} // namespace connector
