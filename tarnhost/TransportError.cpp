#include "tarnhost/TransportError.h"

#include <utility>

namespace connector::host {
namespace {

const char* attempt(TransportPhase phase)
{
    switch (phase) {
    case TransportPhase::prepare:
        return "Could not prepare the request to ";
    case TransportPhase::connect:
        return "Could not connect to ";
    case TransportPhase::secure:
        return "Could not make a secure connection to ";
    case TransportPhase::exchange:
    case TransportPhase::shutdown:
        break;
    }
    return "Could not complete the exchange with ";
}

} // namespace

TransportError::TransportError(TransportPhase phase, std::string url, const std::string& peer,
                               std::string reason, bool mayHaveHappened)
    : std::runtime_error(attempt(phase) + peer + ": " + reason)
    , failedPhase(phase)
    , failedUrl(std::move(url))
    , failedReason(std::move(reason))
    , unknownOutcome(mayHaveHappened)
{
}

} // namespace connector::host
