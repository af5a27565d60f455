#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace tarnd {

/// A number of bytes as people write it: "5G" and "5 GiB" are 5 * 1024^3. Units are K, M, G, T and P, with or without
/// "iB", in either case; none are bytes. Nothing for what is not a size, or more than the database counts.
std::optional<std::uint64_t> parseSize(std::string_view text);

/// "5 GiB", in the largest unit that leaves a whole number; "5 bytes".
std::string sizeText(std::uint64_t bytes);

} // namespace tarnd
