#pragma once

#include <cstdint>

/// What waits of a streamed body, per direction: a queue, what libcurl holds, the item in the consumer's hands and the
/// one that is being written to a file together stay below 1 MiB.
namespace connector::host::detail {

inline constexpr std::uint64_t streamQueueBytes = 384 * 1024;
inline constexpr std::uint64_t streamItemBytes = 128 * 1024;
inline constexpr long streamBufferBytes =
    128 * 1024; ///< of libcurl, which may hold as much again while paused

} // namespace connector::host::detail
