#pragma once

#include <cstdint>

namespace tarncli {

/// Bytes that this process can still take without the machine running out: the kernel's estimate of available
/// memory, or the process's own limit where that is lower.
std::uint64_t availableMemory();

} // namespace tarncli
