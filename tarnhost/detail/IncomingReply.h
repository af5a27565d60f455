#pragma once

#include "tarn/foundation/DataBuffer.h"
#include "tarn/foundation/platform/HttpClientRequest.h"
#include "tarn/foundation/platform/HttpStreamedResponse.h"
#include "tarnhost/HttpOptions.h"

#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>

namespace connector::host::detail {

/// The reply of one exchange while it arrives: its status, its body, and what makes it one that counts.
///
/// A reply counts when its head ended with the empty line and says in exactly one way where the body ends, by
/// a length or by chunks. One that ends with its connection looks the same whole and cut.
class IncomingReply {
public:
    /// How the reply is wanted.
    struct Wish {
        http::ReplyBody body = http::ReplyBody::document;
        bool streamed = false; ///< headers are kept, and content is not gathered here
        bool part = false;     ///< status 206 brings content, too
    };

    IncomingReply(Wish wish, const HttpOptions& options);

    /// Takes one line of a head, its line end included; after the body, of the trailer.
    /// @throws std::runtime_error, whose text says why this reply cannot be taken
    void takeLine(std::string_view line);

    /// Takes bytes of the body. @throws as takeLine
    void takeBody(std::string_view bytes);

    /// Bytes of a streamed body have gone elsewhere.
    void countBody(std::size_t bytes) { streamedBytes += bytes; }

    /// The body is not to be taken here. @pre hasHead
    bool isStreamed() const { return wish.streamed && !isDocument(); }

    http::HttpStreamedResponse::Headers takeHeaders() { return std::move(headers); }

    /// The head of the reply proper, past any interim one, has begun.
    bool hasBegun() const { return stage != Stage::awaited; }

    bool hasHead() const { return stage == Stage::body; }

    /// Read as a whole and parsed: what was asked for as such, and every refusal.
    bool isDocument() const
    {
        return wish.body == http::ReplyBody::document || (hasBegun() && !bringsContent());
    }

    std::uint16_t status() const { return statusCode; }

    /// Bytes of the body so far.
    std::uint64_t bodyBytes() const { return body.size + streamedBytes; }

    /// Bytes of the whole body; nothing while it is not known.
    std::optional<std::uint64_t> bodyLength() const
    {
        return hasHead() && !chunked ? std::optional(announced) : std::nullopt;
    }

    /// Bytes so far, heads included.
    std::uint64_t arrived() const { return headBytes + bodyBytes(); }

    /// The body, in storage that it fills exactly: such is never copied later.
    common::DataBuffer takeContent();

private:
    enum class Stage { awaited, head, body };

    bool bringsContent() const { return statusCode == 200 || (wish.part && statusCode == 206); }

    void beginHead(std::string_view statusLine);
    void takeHeader(std::string_view line);
    void endHead();
    void announce();
    std::uint64_t limit() const;

    const Wish wish;
    const HttpOptions& options;
    Stage stage = Stage::awaited;
    std::uint16_t statusCode = 0;
    std::uint64_t headBytes = 0;
    unsigned framings = 0;       ///< headers that say where the body ends
    const char* fault = nullptr; ///< of one of them; counts only in the reply proper
    bool chunked = false;
    std::uint64_t announced = 0; ///< bytes of a body that is not chunked
    std::uint64_t streamedBytes = 0;
    common::DataBuffer body;
    http::HttpStreamedResponse::Headers headers;
};

} // namespace connector::host::detail
