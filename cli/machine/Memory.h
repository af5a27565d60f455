#pragma once

#include <cstdint>
#include <string>

namespace tarncli {

/// Bytes that this process can still take without the machine running out: the kernel's estimate of available
/// memory, or the process's own limit where that is lower.
std::uint64_t availableMemory();

/// @throws Failure when a content of `bytes` does not fit into the memory that is left
void requireMemory(const std::string& what, std::uint64_t bytes);

} // namespace tarncli
