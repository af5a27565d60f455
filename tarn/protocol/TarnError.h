#pragma once

#include "tarn/foundation/Export.h"

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

namespace connector::tarn {

/// What a caller can do about a failure.
enum class ErrorKind {
    invalidRequest, ///< the request itself is wrong and will be refused again: 400, 411, 416, or refused here
    notLoggedIn,    ///< 401: no live session, or a token that no account has; log in and try again
    notAllowed,     ///< 403: the item may be seen but not used like this
    notFound,       ///< 404; also a user, grant, version, handle or parent folder that is not there
    conflict,       ///< 409, 412: the state of the items is against it
    tooLarge,       ///< 413, 431
    outOfSpace,     ///< 507
    unavailable,    ///< 429, 503: nothing has changed, and the same request may succeed later
    unknownOutcome, ///< the service cannot tell whether the change was made: look before trying again
    serviceFailure, ///< every other status from 500 on
    unreadableReply, ///< not what a Tarn service answers
    notSupported,    ///< 405, 501: this service does not have the operation
};

/// The service's refusal of a request, or its reply that cannot be understood.
///
/// what() is the service's sentence, in its own words; they may change, kind() and reason() do not. Exchanges without a
/// complete reply fail with the host's own error (TransportError), not with this one.
class TARN_API TarnError : public std::runtime_error {
public:
    /// @param status  HTTP status of the reply; 0 when nothing was sent
    /// @param reason  element "reason" of the reply
    TarnError(ErrorKind kind, const std::string& text, std::uint16_t status = 0, std::string reason = {});

    ErrorKind kind() const noexcept { return ownKind; }

    /// HTTP status of the reply, also of one that cannot be understood; 0 when nothing was sent.
    std::uint16_t status() const noexcept { return replyStatus; }

    /// One word for what exactly is wrong, such as "folderNotEmpty" or "unknownUser", from the element "reason" of the
    /// reply; empty when the service does not tell.
    const std::string& reason() const noexcept { return ownReason; }

    /// "get", "put" or "delete"; empty when nothing was sent.
    const std::string& method() const noexcept { return requestMethod; }

    /// The address of the request, percent-encoded, without its query; empty when nothing was sent.
    const std::string& url() const noexcept { return requestUrl; }

    /// Says which exchange it was. @param url  its query is left out @param status  ignored where one is known
    void setExchange(std::string method, std::string_view url, std::uint16_t status);

private:
    ErrorKind ownKind;
    std::uint16_t replyStatus;
    std::string ownReason;
    std::string requestMethod;
    std::string requestUrl;
};

/// The kind of a refusal. A reason that is known decides where a status covers several kinds.
TARN_API ErrorKind errorKindOf(std::uint16_t status, std::string_view reason);

} // namespace connector::tarn
