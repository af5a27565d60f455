#pragma once

#include <cstdint>
#include <string>

namespace tarnd {

/// "2026-11-21T09:37:00Z" from milliseconds since 1970.
std::string timeText(std::int64_t milliseconds);

} // namespace tarnd
