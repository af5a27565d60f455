#pragma once

#include "tarnd/http/Parameters.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarnd {

/// Header fields in the order they came.
using Headers = std::vector<std::pair<std::string, std::string>>;

/// Names of fields do not tell upper from lower case.
bool sameName(std::string_view a, std::string_view b);

/// Refuses fields that other programs may read in another way, before the body or behind it.
/// @param more  bytes that count with them
/// @throws ServiceError badRequest, tooLarge
void checkFields(const Headers& fields, std::size_t more = 0);

/// The values of all fields of that name, in the order they came.
std::vector<std::string_view> valuesOf(const Headers& headers, std::string_view name);

/// The one list that several fields of a name make.
std::string joined(const std::vector<std::string_view>& values);

/// The client holds its body back until it is told to go on ("Expect: 100-continue").
bool waitsForContinue(const Headers& headers);

/// What a client sent before the body, request line included save its target.
struct RequestHead {
    std::string method;
    std::string version;    ///< "HTTP/1.1"
    std::size_t targetSize; ///< bytes between those two; more than the target has when it holds a NUL
    Headers headers;
};

/// The head of one HTTP request, checked for all that would make its end or its meaning ambiguous.
class Request {
public:
    /// @param target as on the request line: path and query, nothing decoded
    /// @throws ServiceError badRequest, tooLarge
    Request(std::string method, std::string_view target, Headers headers);

    /// As on the wire; methods are case-sensitive and in upper case.
    const std::string& method() const { return methodName; }

    /// Still percent-encoded: it must be split at '/' before any name in it is decoded.
    const std::string& path() const { return rawPath; }

    const Parameters& query() const { return parameters; }

    /// The value of a header that may be given at most once, empty when it is absent.
    /// @throws ServiceError badRequest when it is repeated
    std::string header(std::string_view name) const;

    /// The values of all headers of that name, in the order they came.
    std::vector<std::string_view> headerValues(std::string_view name) const;

    /// The body comes in chunks, and ends with the last of them.
    bool isChunked() const;

    /// Bytes of the body as announced; nothing for a chunked body and for a request that announces none.
    std::optional<std::uint64_t> contentLength() const { return announcedLength; }

    /// The client holds its body back until it is told to go on.
    bool waitsForContinue() const { return tarnd::waitsForContinue(headers); }

private:
    std::string methodName;
    std::string rawPath;
    Parameters parameters;
    Headers headers;
    std::optional<std::uint64_t> announcedLength;
};

/// @throws ServiceError badRequest when HTTP/1.1 demands a header that is not there, or HTTP/1.0 has none that is
void requireVersion(const RequestHead& head);

} // namespace tarnd
