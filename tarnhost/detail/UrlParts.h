#pragma once

#include <string>

namespace connector::host::detail {

/// An absolute URL taken apart.
struct UrlParts {
    /// @throws std::invalid_argument with one sentence that does not quote the URL
    explicit UrlParts(const std::string& url);

    /// "host:port", for people.
    std::string peer() const { return host + ":" + port; }

    /// The URL without user information, query and fragment.
    std::string printable() const { return origin + path; }

    std::string scheme; ///< "http" or "https"
    std::string host;   ///< IPv6 literals in brackets
    std::string port;   ///< the scheme's own when the URL names none
    std::string path;   ///< begins with "/"
    std::string origin; ///< "scheme://host:port": what connections can be shared by
    bool hasUser = false;
    bool hasQueryOrFragment = false;
    bool isPlain = false; ///< what follows the origin goes on the wire as it stands
};

/// As the constructor, and quick for one URL after another at the same service. @throws as the constructor
UrlParts partsOf(const std::string& url);

} // namespace connector::host::detail
