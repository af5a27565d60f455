#pragma once

#include "tarn/foundation/Export.h"
#include "tarn/foundation/platform/HttpClientRequest.h"
#include "tarn/protocol/SessionRequest.h"

#include <Poco/URI.h>

#include <memory>
#include <string>

namespace connector::tarn {

inline constexpr const char* sessionIdHeader = "x-qz-tarn-session-id";
inline constexpr const char* authenticationTokenHeader = "x-qz-authentication-token";
inline constexpr const char* contentTypeHeader = "Content-Type";

/// Appends "locale" (always "en_US", whatever the session's locale), then "clientString", "clientType" and
/// "bucket", each of these three only when not empty.
/// @throws std::invalid_argument when `bucket` is malformed UTF-16
TARN_API void addSessionQueryParameters(Poco::URI& uri, const std::string& clientString,
                                        const std::string& clientType, const std::u16string& bucket);

/// Appends one query parameter to a request that is built already; an empty value is added as well. Parses
/// and prints the URL each time: use ServiceRequest where several parameters are added.
/// @throws std::invalid_argument when `value` is malformed UTF-16
TARN_API void addUtf16QueryParameter(std::unique_ptr<http::HttpClientRequest>& httpRequest,
                                     const std::string& name, const std::u16string& value);

} // namespace connector::tarn
