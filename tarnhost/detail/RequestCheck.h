#pragma once

#include "tarn/foundation/platform/HttpClientRequest.h"
#include "tarnhost/detail/UrlParts.h"

#include <curl/curl.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

/// What a request is refused for before anything is sent: it would not arrive as it was meant.
namespace connector::host::detail {

/// @throws TransportError, phase prepare: not http or https, or a user name in it
UrlParts checkedTarget(const http::HttpClientRequest& request);

/// The method as it goes on the wire. @throws TransportError, phase prepare, unless "get", "put" or "delete"
std::string checkedMethod(const http::HttpClientRequest& request, const UrlParts& target);

/// How the body is sent, as the headers say.
struct BodyFraming {
    bool streamed = false;               ///< as it arrives; otherwise it is gathered first
    std::optional<std::uint64_t> length; ///< of a streamed body; nothing: it goes in chunks
};

/// @throws TransportError, phase prepare: a header that frames a body that is not there, two of them, a length that
///   is no number, or a coding other than "chunked"
BodyFraming checkedFraming(const http::HttpClientRequest& request, const UrlParts& target);

struct FreeHeaderList {
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

using HeaderList = std::unique_ptr<curl_slist, FreeHeaderList>;

/// The headers as libcurl takes them. Those that frame the body are left out, since it writes them itself.
/// @throws TransportError, phase prepare: a name that is no token, or a value with CR, LF or NUL. The text names the
///   header, never its value
HeaderList checkedHeaders(const http::HttpClientRequest& request, const UrlParts& target);

} // namespace connector::host::detail
