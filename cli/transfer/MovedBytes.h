#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

namespace tarncli {

/// The bytes of contents that have moved, over all transfers of a command: counted on the threads that move them, and
/// taken back where a transfer starts over.
using MovedBytes = std::shared_ptr<std::atomic<std::uint64_t>>;

inline MovedBytes countFromZero()
{
    return std::make_shared<std::atomic<std::uint64_t>>(0);
}

} // namespace tarncli
