#pragma once

#include "tarn/foundation/platform/HttpClientRequest.h"

#include <cstdint>

namespace connector::http {

/// The reply to an HttpClientRequest, whatever its status. A request that got no complete reply is a failed future
/// instead, or a body that fails: a reply counts when its head has ended and its body has come to its length or last
/// chunk.
///
/// The library folds the body on the thread that resolves the future, and waits there until the body has ended: a host
/// resolves once the whole body is there, or brings the rest on another thread.
struct TARN_API HttpClientResponse : Message {
    HttpClientResponse(std::uint16_t statusCode, BodyPublisher bodyPublisher)
        : status(statusCode), body(std::move(bodyPublisher))
    {
    }

    std::uint16_t status; ///< HTTP status code
    BodyPublisher body;   ///< null: the reply has no body
};

} // namespace connector::http
