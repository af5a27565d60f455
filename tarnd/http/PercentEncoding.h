#pragma once

#include <string>
#include <string_view>

namespace tarnd {

/// Decodes `%HH`; every other byte, '+' included, stands for itself.
/// @throws ServiceError badRequest for a broken escape, and when the result is not UTF-8 or holds a NUL
std::string percentDecode(std::string_view encoded);

/// Encodes every byte but letters, digits and "-._~", so that the result is safe as a URL segment, in a
/// quoted HTML attribute and as the value of an extended header parameter.
std::string percentEncode(std::string_view text);

} // namespace tarnd
