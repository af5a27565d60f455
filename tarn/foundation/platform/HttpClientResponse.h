#pragma once

#include "tarn/foundation/platform/HttpClientRequest.h"

#include <cstdint>

namespace connector::http {

/// The reply to an HttpClientRequest. A request that got no reply at all is a failed future instead.
struct TARN_API HttpClientResponse : Message {
    HttpClientResponse(std::uint16_t statusCode, BodyPublisher bodyPublisher)
        : status(statusCode), body(std::move(bodyPublisher))
    {
    }

    std::uint16_t status; ///< HTTP status code
    BodyPublisher body;   ///< null: the reply has no body
};

} // namespace connector::http
