#pragma once

#include "tarn/foundation/Export.h"

#include <cstdint>
#include <stdexcept>
#include <string>

namespace connector::host {

/// How far an HTTP exchange had come when it failed.
enum class TransportPhase {
    prepare,  ///< the request was refused here; nothing was sent
    connect,  ///< no connection: unknown host, refused, timed out
    secure,   ///< connected, but TLS failed: certificate not trusted, wrong host, no common cipher
    exchange, ///< broken while sending or receiving: whether the service acted on the request is unknown
    reply,    ///< a complete reply came, which HttpOptions::replyCheck refused
    shutdown, ///< the host was shut down: before anything was sent, or as `exchange`
    deadline, ///< that of the call has passed: before anything was sent, or as `exchange`
    stopped,  ///< by the caller: before anything was sent, or as `exchange`
    gateway, ///< as `reply`, with a status that `isGatewayStatus`: of something in the service's place; as `exchange`
};

/// Whether a reply of this HTTP status says that the service did not get to answer, or not in time: 502, 503, 504.
TARN_API bool isGatewayStatus(std::uint16_t status);

/// An HTTP request that got no complete reply.
///
/// what() reads like "Could not connect to 127.0.0.1:7070: Connection refused", or like "The exchange with
/// 127.0.0.1:7070 passed its deadline while waiting for the reply."; for phase shutdown it is always "The host has been
/// shut down.".
class TARN_API TransportError : public std::runtime_error {
public:
    /// @param url   without query, fragment and user information: it may be shown and logged
    /// @param peer             "host:port"
    /// @param mayHaveHappened  see the accessor
    TransportError(TransportPhase phase, std::string url, const std::string& peer, std::string reason,
                   bool mayHaveHappened = false);

    TransportPhase phase() const { return failedPhase; }

    const std::string& url() const { return failedUrl; }

    /// What the network layer said, without the peer; of a deadline and a stop, what the exchange was doing.
    const std::string& reason() const { return failedReason; }

    /// The request changes something and all of it was sent: the service may have carried it out, although no
    /// reply says so. Never for a request that only reads, nor for one that was not sent.
    bool mayHaveHappened() const { return unknownOutcome; }

    /// The connection could not be made, for whatever reason but a certificate, or was lost, also that of a gateway to
    /// the service: another try may end otherwise.
    bool isInterruption() const;

private:
    TransportPhase failedPhase;
    std::string failedUrl;
    std::string failedReason;
    bool unknownOutcome;
};

} // namespace connector::host
