#include "tarn/protocol/TarnError.h"

#include <utility>

namespace connector::tarn {
namespace {

struct ReasonKind {
    std::string_view reason;
    ErrorKind kind;
};

/// The service answers 404 for paths alone, so what else is missing comes with the status of a refused request.
constexpr ReasonKind finerThanTheirStatus[] = {
    {"unknownUser", ErrorKind::notFound},         {"unknownPermission", ErrorKind::notFound},
    {"unknownVersion", ErrorKind::notFound},      {"unknownHandle", ErrorKind::notFound},
    {"unknownLink", ErrorKind::notFound},         {"parentMissing", ErrorKind::notFound},
    {"grantToOwner", ErrorKind::conflict},        {"tooManyFailedLogins", ErrorKind::notLoggedIn},
    {"unknownRoute", ErrorKind::notSupported},    {"wrongMethod", ErrorKind::notSupported},
    {"commitUnknown", ErrorKind::unknownOutcome},
};

ErrorKind kindOfStatus(std::uint16_t status)
{
    switch (status) {
    case 401:
        return ErrorKind::notLoggedIn;
    case 403:
        return ErrorKind::notAllowed;
    case 404:
        return ErrorKind::notFound;
    case 409:
    case 412:
        return ErrorKind::conflict;
    case 413:
    case 431:
        return ErrorKind::tooLarge;
    case 429:
    case 503:
        return ErrorKind::unavailable;
    case 405:
    case 501:
        return ErrorKind::notSupported;
    case 507:
        return ErrorKind::outOfSpace;
    default:
        if (status >= 500) return ErrorKind::serviceFailure;
        return status >= 400 ? ErrorKind::invalidRequest : ErrorKind::unreadableReply;
    }
}

} // namespace

TarnError::TarnError(ErrorKind kind, const std::string& text, std::uint16_t status, std::string reason)
    : std::runtime_error(text), ownKind(kind), replyStatus(status), ownReason(std::move(reason))
{
}

void TarnError::setExchange(std::string method, std::string_view url, std::uint16_t status)
{
    if (replyStatus == 0) replyStatus = status;
    requestMethod = std::move(method);
    requestUrl = url.substr(0, url.find('?'));
}

ErrorKind errorKindOf(std::uint16_t status, std::string_view reason)
{
    for (const auto& known : finerThanTheirStatus)
        if (known.reason == reason) return known.kind;
    return kindOfStatus(status);
}

} // namespace connector::tarn
