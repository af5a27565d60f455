#pragma once

#include <cstdint>

namespace connector::host::detail {

/// Bytes that the machine can give without running out, as the kernel estimates it; unlimited where it does
/// not say.
std::uint64_t availableMemory();

} // namespace connector::host::detail
