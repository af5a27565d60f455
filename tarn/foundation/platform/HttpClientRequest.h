#pragma once

#include "tarn/foundation/CallOptions.h"
#include "tarn/foundation/DataBuffer.h"
#include "tarn/foundation/platform/Message.h"
#include "tarn/foundation/platform/ReactiveStreams.h"

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

namespace connector::http {

using BodyPublisher = std::shared_ptr<reactive_streams::PublisherAPI<common::DataBuffer>>;

/// What a reply carries, which decides how the host's HTTP client bounds it.
enum class ReplyBody : std::uint8_t {
    document, ///< read as a whole and parsed: bounded in bytes and in time
    content,  ///< the bytes of a file: neither, as long as they keep coming
};

/// One HTTP request, for the host's HTTP client, which sends it as it stands:
///
/// - the method in upper case, the URL's path and query untouched, the headers as they are, one with an empty value
///   included;
/// - a body with its length; one that is present and empty with "Content-Length: 0", and so a "put" without a body;
/// - "Content-Length" and "Transfer-Encoding" among the headers frame a body that is sent as it arrives (see
///   HttpStreamedRequest); a host that gathers the body replaces them by a length of its own;
/// - once: no redirect is followed, and what must not happen twice (see `atMostOnce`) is not sent a second time when a
///   kept-alive connection turns out dead;
/// - asking for no content coding, and undoing none.
///
/// tarntesting/HostTest.h holds a host to this.
struct TARN_API HttpClientRequest : Message {
    HttpClientRequest(std::string urlText, std::string methodWord, BodyPublisher bodyPublisher)
        : url(std::move(urlText)), method(std::move(methodWord)), body(std::move(bodyPublisher))
    {
    }

    std::string url;    ///< absolute, percent-encoded
    std::string method; ///< lower case: "get", "put" or "delete"
    BodyPublisher body; ///< null: the request has no body
    std::unordered_multimap<std::string, std::string>
        headers; ///< name to value; an empty value is sent as such

    /// The request changes something although it is a "get": it must not be sent a second time when its
    /// connection is lost. A "put" or "delete" never is, whatever stands here.
    bool atMostOnce = false;
    /// What status 200 brings; every other status brings a document.
    ReplyBody replyBody = ReplyBody::document;
    /// What the caller wants of this request; null: nothing in particular. A host heeds what it can.
    SharedCallOptions options;
};

} // namespace connector::http
