#pragma once

#include "tarnd/http/XmlWriter.h"
#include "tarnd/store/ServiceError.h"
#include "tarnd/store/UniqueFd.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tarnd {

/// A body that is made, or fetched, while it goes out.
class BodySource {
public:
    virtual ~BodySource() = default;

    /// Fills in the next bytes, `size` at most, and says how many; 0 at the end. May block.
    /// @throws std::exception when it cannot go on; the body must not look complete then
    virtual std::size_t read(char* data, std::size_t size) = 0;
};

/// What goes back for one request: a text, the bytes of an open file, or what a source makes.
struct Reply {
    unsigned status = 200;
    std::string contentType;
    std::string text;
    UniqueFd file;                      ///< when set, `fileSize` bytes of it are the body instead of `text`
    std::uint64_t fileOffset = 0;       ///< where these begin
    std::uint64_t fileSize = 0;         ///< bytes
    std::shared_ptr<BodySource> source; ///< when set, the body comes from there
    std::optional<std::uint64_t> sourceSize; ///< bytes of it, when that is known beforehand
    std::vector<std::pair<std::string, std::string>> headers;
};

/// What becomes of the connection.
enum class AfterReply { keep, close };

/// The headers that go out with it, but for the length: what every reply carries, and its own.
std::vector<std::pair<std::string, std::string>> headersOf(const Reply& reply, AfterReply after);

/// Success: 200 with the document.
Reply xmlReply(XmlWriter&& document);

/// 200 with a plain text.
Reply textReply(std::string text);

/// Success without anything to tell: 200 with an empty document, because the library parses every reply.
Reply doneReply();

/// The one place where a kind of failure becomes a status.
unsigned statusOf(ServiceError::Kind kind);

/// The header of a refusal after which the same may be tried again.
std::pair<std::string, std::string> retrySoon();

/// `<Error><code>One plain sentence.</code><reason>itsName</reason></Error>` with the status of its kind.
Reply errorReply(const ServiceError& error);

} // namespace tarnd
