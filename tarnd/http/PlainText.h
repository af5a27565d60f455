#pragma once

#include <string>
#include <string_view>

namespace tarnd {

/// What a client sent, made fit for a sentence or a line of the log: whatever is not a visible ASCII character
/// becomes '?', so that it can neither forge a line nor steer a terminal.
inline std::string plainText(std::string_view text)
{
    std::string plain;
    for (const char c : text)
        plain += c > 0x20 && c < 0x7f ? c : '?';
    return plain;
}

} // namespace tarnd
