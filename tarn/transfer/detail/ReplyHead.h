#pragma once

#include "tarn/foundation/platform/HttpStreamedResponse.h"

#include <cstdint>
#include <optional>
#include <string>

namespace connector::tarn::detail {

/// What the headers of a reply tell, as far as the host hands them over.
class ReplyHead {
public:
    explicit ReplyHead(const http::HttpClientResponse& reply);

    /// Whether the host hands headers over at all.
    bool isKnown() const { return streamed != nullptr; }

    /// A part of a file, as "Content-Range" says.
    struct Part {
        std::optional<std::uint64_t> first; ///< nothing: the part that was asked for is not there
        std::uint64_t last = 0;
        std::optional<std::uint64_t> total;
    };

    /// Nothing when there is no such header, or none that can be read.
    std::optional<Part> part() const;
    std::optional<std::uint64_t> contentLength() const;
    /// Of the whole file: "Repr-Digest", or "Content-Digest" where the body is the whole; empty when not told.
    std::string sha256() const;
    /// Of the body: "Content-Digest"; empty when not told.
    std::string bodySha256() const;
    /// Of "ETag", without its quotes.
    std::string versionId() const;

private:
    /// The only header of this name; empty otherwise.
    std::string value(const std::string& name) const;

    /// The SHA-256 that headers of this name tell, each of which may tell several digests.
    std::string sha256Of(const std::string& name) const;

    const http::HttpClientResponse& response;
    const http::HttpStreamedResponse* streamed; ///< null: of a host that hands no headers over
};

} // namespace connector::tarn::detail
