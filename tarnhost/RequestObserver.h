#pragma once

#include "tarn/foundation/Export.h"

#include <chrono>
#include <cstdint>
#include <exception>
#include <optional>
#include <string>

namespace connector::host {

/// What observers are told of a request. No secret comes here: neither headers nor bodies are, nor what stands for a
/// right, such as the token of a public link.
struct ObservedRequest {
    std::uint64_t id = 0;  ///< counts the observed requests of this process
    std::string operation; ///< method and area, "GET files"; "other" for what is not the service's
    std::string service;   ///< "https://files.example.org:443"
    /// Percent-encoded, "/service/v1/files/a.txt"; "…" for the id of a file handle and for whatever follows the first
    /// word of a path that is not the service's.
    std::string path;
    /// What the request says in its query, percent-encoded, "createMode=CREATE&bucket=alice"; of what names no item and
    /// no user, and chooses nothing, nothing.
    std::string parameters;
    std::string tag; ///< CallOptions::tag
};

/// One try.
struct ObservedAttempt {
    using Duration = std::chrono::microseconds;

    unsigned number = 1;
    std::uint16_t status = 0;        ///< HTTP status; 0: no head of a reply came
    std::uint64_t bytesSent = 0;     ///< of the body
    std::uint64_t bytesReceived = 0; ///< of the body
    Duration waiting{};              ///< for one of the connections that a service is given
    Duration connecting{};           ///< name lookup and TCP; 0 on a connection that was there
    Duration securing{};             ///< TLS; likewise
    Duration answering{};            ///< from the first byte sent to the first received
    Duration receiving{};            ///< from there to the last
    std::string failure; ///< what the error says; empty: a complete reply came, whatever its status
    std::optional<std::chrono::milliseconds> pause; ///< before the next try; nothing: this was the last
};

/// What a request has come to.
struct ObservedResult {
    std::uint16_t status = 0; ///< as ObservedAttempt::status, of the last try
    unsigned attempts = 1;
    std::uint64_t bytesSent = 0; ///< of the bodies of all attempts
    std::uint64_t bytesReceived = 0;
    std::chrono::microseconds duration{}; ///< of everything, pauses included
    std::string failure;                  ///< as ObservedAttempt::failure
    bool mayHaveHappened = false;         ///< as TransportError::mayHaveHappened
};

/// Hears of the HTTP requests of a host that has it in HttpOptions::observers.
///
/// Called on the delivery threads: for one request in the order below, one call after the other, and `finished` before
/// its future is settled (of a reply that is streamed, when the last byte has come); for several requests at the same
/// time. What an observer throws is dropped. It must not wait.
class TARN_API RequestObserver {
public:
    virtual ~RequestObserver() = default;

    virtual void started(const ObservedRequest&) {}

    /// After each try.
    virtual void attempted(const ObservedRequest&, const ObservedAttempt&) {}

    virtual void finished(const ObservedRequest&, const ObservedResult&) {}

    /// A future has failed, and has gone without anybody having looked (FutureWatch): of this host or of anything else
    /// in the process.
    virtual void unobserved(const std::exception_ptr&) {}
};

} // namespace connector::host
