#pragma once

#include "tarnd/http/XmlWriter.h"
#include "tarnd/store/ServiceError.h"
#include "tarnd/store/UniqueFd.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace tarnd {

/// What goes back for one request: a text, or the bytes of an open file.
struct Reply {
    unsigned status = 200;
    std::string contentType;
    std::string text;
    UniqueFd file;                ///< when set, `fileSize` bytes of it are the body instead of `text`
    std::uint64_t fileOffset = 0; ///< where these begin
    std::uint64_t fileSize = 0;   ///< bytes
    std::vector<std::pair<std::string, std::string>> headers;
};

/// Success: 200 with the document.
Reply xmlReply(XmlWriter&& document);

/// 200 with a plain text.
Reply textReply(std::string text);

/// Success without anything to tell: 200 with an empty document, because the library parses every reply.
Reply doneReply();

/// The one place where a kind of failure becomes a status.
unsigned statusOf(ServiceError::Kind kind);

/// `<Error><code>One plain sentence.</code><reason>itsName</reason></Error>` with the status of its kind.
Reply errorReply(const ServiceError& error);

} // namespace tarnd
