#pragma once

#include "tarn/foundation/CallOptions.h"
#include "tarn/foundation/platform/HttpStreamedRequest.h"
#include "tarn/protocol/SessionQuery.h"

#include <Poco/URI.h>

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace connector::tarn {

/// One HTTP request to the service in the making. The URL is parsed once and printed once, in `build`.
class TARN_API ServiceRequest {
public:
    /// @param urlText  endpoint and path as they stand; percent-encoded as a whole. '/', '?' and '#' stay as they
    ///                 are: an item path that holds '?' or '#' reaches another object
    /// @throws Poco::SyntaxException when the text is not a URL
    ServiceRequest(std::string methodWord, const std::string& urlText);

    /// Appends the parameters of addSessionQueryParameters, and takes over the options of the call.
    void addIdentity(const TarnBaseRequest& request, const std::u16string& bucket = {});

    void addText(const std::string& name, const std::string& value) { uri.addQueryParameter(name, value); }

    void addText(const std::string& name, const std::u16string& value);
    void addFlag(const std::string& name, bool value);
    void addNumber(const std::string& name, std::int64_t value);

    void addHeader(const std::string& name, const std::string& value) { headers.emplace_back(name, value); }

    /// A condition on the content: this tag, between quotes, unless it is empty.
    /// @throws std::invalid_argument when it holds what would end it, or the header
    void addTag(const std::string& header, const std::string& tag);

    void setBody(http::BodyPublisher publisher) { body = std::move(publisher); }

    std::unique_ptr<http::HttpClientRequest> build() const { return buildAs<http::HttpClientRequest>(); }

    /// The same request, its reply wanted while it arrives.
    std::unique_ptr<http::HttpStreamedRequest> buildStreamed() const
    {
        return buildAs<http::HttpStreamedRequest>();
    }

private:
    template <class Http>
    std::unique_ptr<Http> buildAs() const
    {
        auto request = std::make_unique<Http>(uri.toString(), method, body);
        request->headers.insert(headers.begin(), headers.end());
        request->options = options;
        return request;
    }

    std::string method;
    Poco::URI uri;
    std::vector<std::pair<std::string, std::string>> headers;
    http::BodyPublisher body;
    SharedCallOptions options;
};

/// A request without body, with the session's parameters (never "bucket") and header.
///
/// @param endpoint      base URL of the service; percent-encoded together with the path, so an IPv6 literal in
///                      brackets does not survive
/// @param method        "get", "put" or "delete"
/// @param resourcePath  appended to `servicePath`, after a '/' unless it begins with one; empty adds nothing.
///                      '?' and '#' in it are not escaped: they cut an id off
/// @throws Poco::SyntaxException when endpoint and path make no URL
TARN_API std::unique_ptr<http::HttpClientRequest>
makeSessionHttpRequest(const std::string& endpoint, const std::string& method, const std::string& servicePath,
                       const std::string& resourcePath, const SessionRequest& request);

/// A request as makeSessionHttpRequest builds it, open for further parameters.
TARN_API ServiceRequest sessionRequest(const std::string& endpoint, const std::string& method,
                                       const std::string& servicePath, const std::string& resourcePath,
                                       const SessionRequest& request);

/// A request about the item at `path`, which is joined to `servicePath` as it stands: it is expected to begin
/// with '/'.
/// @param bucket  parameter "bucket" when not empty
/// @throws std::invalid_argument when `path` or `bucket` is malformed UTF-16
TARN_API ServiceRequest pathRequest(const std::string& endpoint, const std::string& method,
                                    const std::string& servicePath, const std::u16string& path,
                                    const std::u16string& bucket, const SessionRequest& request);

} // namespace connector::tarn
