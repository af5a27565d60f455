#pragma once

#include <string>

namespace connector::host::detail {

/// An absolute URL taken apart.
struct UrlParts {
    /// @throws std::invalid_argument with one sentence that does not quote the URL
    explicit UrlParts(const std::string& url);

    /// "host:port", for people.
    std::string peer() const { return host + ":" + port; }

    /// What connections can be shared by.
    std::string origin() const { return scheme + "://" + peer(); }

    /// The URL without user information, query and fragment.
    std::string printable() const { return origin() + path; }

    std::string scheme; ///< "http" or "https"
    std::string host;   ///< IPv6 literals in brackets
    std::string port;   ///< the scheme's own when the URL names none
    std::string path;   ///< begins with "/"
    bool hasUser = false;
    bool hasQueryOrFragment = false;
};

} // namespace connector::host::detail
