#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace tarnd {

/// Consecutive bytes of a content.
struct ContentPart {
    std::uint64_t first = 0;
    std::uint64_t size = 0; ///< 0: nothing of what was asked for is there
};

/// The part that the value of a Range header asks for of a content of `size` bytes; nothing, which means the
/// whole content, for a value that is not one range of bytes.
std::optional<ContentPart> partOf(std::string_view range, std::uint64_t size);

} // namespace tarnd
