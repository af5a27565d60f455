#pragma once

#include "tarn/protocol/TarnBaseRequest.h"

namespace connector::tarn {

/// The base of every request made within a session.
struct TARN_API SessionRequest : TarnBaseRequest {
    std::string sessionId; ///< from the last login; header "x-qz-tarn-session-id", sent even when empty
};

} // namespace connector::tarn
