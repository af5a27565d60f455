#pragma once

#include "tarn/foundation/platform/HttpClientRequest.h"
#include "tarnhost/detail/UrlParts.h"

#include <string>
#include <vector>

/// What a request is refused for before anything is sent: it would not arrive as it was meant.
namespace connector::host::detail {

/// @throws TransportError, phase prepare: not http or https, or a user name in it
UrlParts checkedTarget(const http::HttpClientRequest& request);

/// The method as it goes on the wire. @throws TransportError, phase prepare, unless "get", "put" or "delete"
std::string checkedMethod(const http::HttpClientRequest& request, const UrlParts& target);

/// One text per header: "name: value", or "name;" for an empty value.
/// @throws TransportError, phase prepare: a name that is no token, a value with CR, LF or NUL, or a header
///   that says how the body is framed. The text names the header, never its value
std::vector<std::string> checkedHeaders(const http::HttpClientRequest& request, const UrlParts& target);

} // namespace connector::host::detail
