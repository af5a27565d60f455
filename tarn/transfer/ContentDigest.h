#pragma once

#include "tarn/foundation/Export.h"

#include <string>
#include <string_view>

namespace connector::tarn {

/// The bytes as hexadecimal digits in lower case.
TARN_API std::string hexOf(std::string_view bytes);

/// The SHA-256 that the value of a "Content-Digest" header tells, as 64 hexadecimal digits; empty when it tells
/// none, or none that is one.
TARN_API std::string sha256In(std::string_view contentDigest);

/// The value of a "Content-Digest" header that tells this SHA-256.
/// @param sha256  64 hexadecimal digits. @throws std::invalid_argument when it is not that
TARN_API std::string contentDigestOf(std::string_view sha256);

} // namespace connector::tarn
