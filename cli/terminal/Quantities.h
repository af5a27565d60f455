#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarncli {

/// "0 B", "999 B", "1.5 KiB", "12 MiB": three figures at most, 1024 to the step.
std::string humanSize(std::uint64_t bytes);

/// Bytes from "10", "64k", "10M", "1GiB": 1024 to the step; nothing when it is no size.
std::optional<std::uint64_t> parseSize(std::string_view text);

/// Milliseconds from "90s", "15m", "12h", "7d", "2w", and days from "7"; nothing when it is none of these.
std::optional<std::uint64_t> parseAge(std::string_view text);

/// "2026-11-21 09:37" in local time, from milliseconds since 1970 UTC.
std::string humanTime(std::uint64_t milliseconds);

/// "0:07", "12:34", "1:02:03".
std::string humanDuration(std::chrono::seconds duration);

/// "1 file", "2 files".
std::string counted(std::uint64_t number, const std::string& noun);

/// "was" of one, "were" of any other number.
const char* wasOrWere(std::uint64_t number);

} // namespace tarncli
