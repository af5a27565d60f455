#pragma once

#include "tarn/foundation/DataBuffer.h"
#include "tarn/foundation/platform/Message.h"
#include "tarn/foundation/platform/ReactiveStreams.h"

#include <memory>
#include <string>
#include <unordered_map>
#include <utility>

namespace connector::http {

using BodyPublisher = std::shared_ptr<reactive_streams::PublisherAPI<common::DataBuffer>>;

/// One HTTP request, for the host's HTTP client.
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
};

} // namespace connector::http
