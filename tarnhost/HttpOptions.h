#pragma once

#include "tarn/foundation/RetryPolicy.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace connector::host {

class RequestObserver;

/// A complete reply, as HttpOptions::replyCheck sees it.
struct ReceivedReply {
    std::uint16_t status = 0;
    std::string_view contentType; ///< as sent; empty: none was
    bool isContent = false;       ///< status 200 on a request for the bytes of a file; else it is a document
    std::string_view body;
};

/// How the HTTP client works. Redirects, cookies, content decoding and proxies of the environment are off
/// whatever is set here, and TLS certificates are always verified, from TLS 1.2 on.
///
/// A limit that is passed fails the exchange with TransportError, phase connect for the first and exchange
/// for the others. Where one is longer than a century it is that, and the first 24 days at most.
struct HttpOptions {
    /// For name lookup, TCP and TLS together.
    std::chrono::milliseconds connectTimeout{10'000};
    /// From the last byte of the request to the first line of the reply. The service works meanwhile, as long
    /// as a large delete on a slow disk may take.
    std::chrono::milliseconds replyTimeout{300'000};
    /// A request or a reply under way, of whatever kind, moves at least `leastRate` bytes per second, averaged
    /// over this time.
    std::chrono::milliseconds stallWindow{30'000};
    std::uint64_t leastRate = 1024; ///< bytes per second; 0: a body may stand still for ever
    /// Bytes per second, each way, at most, shared evenly by the transfers under way; 0: no limit. Should be well above
    /// `leastRate` for each of them.
    std::uint64_t mostRate = 0;
    /// From the last byte of the request to the last of the reply, where the reply is a document.
    std::chrono::milliseconds documentTimeout{600'000};

    std::uint64_t documentLimit = std::uint64_t{64} << 20; ///< bytes of a document
    /// Bytes of content whose length the head announces. Content that is announced has to fit into the memory
    /// that is available, or fails before any of it is taken. Streamed content is not gathered, and neither this
    /// limit nor the next one is applied to it.
    std::uint64_t contentLimit = std::numeric_limits<std::uint64_t>::max();
    /// Bytes of content that comes in chunks, which nobody can know beforehand.
    std::uint64_t chunkedContentLimit = std::uint64_t{1} << 30;

    std::string caFile = {}; ///< PEM file of trusted roots; empty: the system's
    /// URL of a proxy; empty: none. One that cannot work is refused when the client is made: std::invalid_argument "The
    /// proxy must be a URL like http://proxy.example.org:3128: ...". A password in it comes into no error and no recording.
    std::string proxy = {};
    /// Further requests to the same host wait their turn. A streamed transfer that has stood still for a second or two,
    /// since its subscriber asks for nothing or its publisher brings nothing, no longer counts, also when it goes on:
    /// what it waits for may be one of those requests.
    unsigned connectionsPerHost = 16;
    /// Looks at every complete reply, and at the head of a streamed one with an empty body, before it is handed
    /// on, whatever its status; empty: all pass. Returns what is wrong with it, with which the exchange then fails
    /// (TransportError, phase reply or gateway), or nothing. Called on the delivery threads, several at a time.
    std::function<std::string(const ReceivedReply&)> replyCheck = {};
    /// For requests that do not say themselves how often they are tried again. Each try has its own time limits.
    RetryPolicy retries = {};
    /// Hear of every request. None of them null.
    std::vector<std::shared_ptr<RequestObserver>> observers = {};
};

} // namespace connector::host
