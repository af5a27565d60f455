#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace connector::host {

/// How the HTTP client works. Redirects, cookies, content decoding and proxies of the environment are off
/// whatever is set here, and TLS certificates are always verified.
struct HttpOptions {
    /// For name lookup, TCP and TLS together.
    std::chrono::milliseconds connectTimeout{10'000};
    /// Without a byte in either direction for this long the exchange fails. There is no limit on the whole.
    std::chrono::seconds stallTimeout{30};
    std::string caFile = {};                           ///< PEM file of trusted roots; empty: the system's
    std::string proxy = {};                            ///< URL of a proxy; empty: none
    std::uint64_t replyLimit = std::uint64_t{4} << 30; ///< bytes of a reply, headers included
    unsigned connectionsPerHost = 16;                  ///< further requests to the same host wait their turn
};

} // namespace connector::host
