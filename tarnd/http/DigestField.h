#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace tarnd {

/// The SHA-256 that fields of the name Content-Digest announce, in base64 without padding; empty: they announce others,
/// or none.
/// @param values  of all of them, which make one dictionary of members such as "sha-256=:BASE64:"; the last one of a
///                name counts
/// @throws ServiceError badRequest when they cannot be read
std::string announcedSha256(const std::vector<std::string_view>& values);

} // namespace tarnd
