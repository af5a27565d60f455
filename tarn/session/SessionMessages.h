#pragma once

#include "tarn/foundation/ServiceMessage.h"
#include "tarn/protocol/SessionRequest.h"
#include "tarn/session/TarnSessionServiceProvider.h"

#include <cstdint>
#include <string>

namespace connector::tarn {

/// Opens a session.
///
/// Wire   GET /service/v1/login; header "x-qz-authentication-token", sent even when empty; no session header
/// Fails  the service's own text for a token it does not know; "stoul" (std::invalid_argument or
///        std::out_of_range) when the reply's "MinutesBeforeRelogin" is not a number; otherwise as every
///        request: "File not found." (404), "Unknown error.", "TARN error: ..." when the reply is not XML, or
///        the transport's failure
struct TARN_API Login : TarnBaseRequest, MessageAPI<Login, TarnSessionServiceProvider> {
    using Response = struct LoginResponse;

    std::u16string user;             ///< kept by the session; not sent: the token names the account
    std::string authenticationToken; ///< UTF-8, from whoever runs the service
};

struct TARN_API LoginResponse : Message {
    std::string sessionId; ///< element "TarnSessionId"; empty when the reply has not exactly one
    std::uint32_t minutesBeforeRelogin = 0; ///< element "MinutesBeforeRelogin": when to log in again
};

/// Ends the session.
///
/// Wire   GET /service/v1/logout
/// Fails  as every request; also when the reply is not XML, an empty one included
struct TARN_API Logout : SessionRequest, MessageAPI<Logout, TarnSessionServiceProvider> {
    using Response = struct LogoutResponse;
};

struct TARN_API LogoutResponse : Message {};

/// Asks for a sign of life, which also keeps the session from ageing.
///
/// Wire   GET /service/v1/ping
/// Fails  as every request
struct TARN_API Ping : SessionRequest, MessageAPI<Ping, TarnSessionServiceProvider> {
    using Response = struct PingResponse;
};

struct TARN_API PingResponse : Message {
    std::string value; ///< element "Value", UTF-8; empty when the reply has not exactly one
};

} // namespace connector::tarn
