#include "tarnhost/TransportError.h"

#include <utility>

namespace connector::host {
namespace {

std::string sentence(TransportPhase phase, const std::string& peer, const std::string& reason)
{
    switch (phase) {
    case TransportPhase::prepare:
        return "Could not prepare the request to " + peer + ": " + reason;
    case TransportPhase::connect:
        return "Could not connect to " + peer + ": " + reason;
    case TransportPhase::secure:
        return "Could not make a secure connection to " + peer + ": " + reason;
    case TransportPhase::reply:
        return "Could not use the reply of " + peer + ": " + reason;
    case TransportPhase::shutdown:
        return reason; // wherever a request was when its host went, it fails with the same sentence
    case TransportPhase::deadline:
        return "The exchange with " + peer + " passed its deadline while " + reason + ".";
    case TransportPhase::stopped:
        return "The exchange with " + peer + " was stopped while " + reason + ".";
    case TransportPhase::gateway:
        return "Could not get through to the service at " + peer + ": " + reason;
    case TransportPhase::exchange:
        break;
    }
    return "Could not complete the exchange with " + peer + ": " + reason;
}

} // namespace

bool isGatewayStatus(std::uint16_t status)
{
    return status >= 502 && status <= 504;
}

TransportError::TransportError(TransportPhase phase, std::string url, const std::string& peer,
                               std::string reason, bool mayHaveHappened)
    : std::runtime_error(sentence(phase, peer, reason))
    , failedPhase(phase)
    , failedUrl(std::move(url))
    , failedReason(std::move(reason))
    , unknownOutcome(mayHaveHappened)
{
}

bool TransportError::isInterruption() const
{
    // A certificate stays as it is, however often it is looked at.
    if (failedPhase == TransportPhase::secure) return failedReason.find("certificate") == std::string::npos;
    return failedPhase == TransportPhase::connect || failedPhase == TransportPhase::exchange ||
           failedPhase == TransportPhase::gateway;
}

} // namespace connector::host
