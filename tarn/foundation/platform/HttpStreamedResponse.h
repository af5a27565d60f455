#pragma once

#include "tarn/foundation/platform/HttpClientResponse.h"

#include <string>
#include <unordered_map>
#include <utility>

namespace connector::http {

/// The reply to an HttpStreamedRequest, which says what its body is: live or whole.
struct TARN_API HttpStreamedResponse : HttpClientResponse {
    using Headers = std::unordered_multimap<std::string, std::string>;

    HttpStreamedResponse(std::uint16_t statusCode, BodyPublisher bodyPublisher, Headers replyHeaders)
        : HttpClientResponse(statusCode, std::move(bodyPublisher)), headers(std::move(replyHeaders))
    {
    }

    Headers headers; ///< name in lower case to value, without the blanks around it
};

} // namespace connector::http
