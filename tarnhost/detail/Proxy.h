#pragma once

#include <string>

namespace connector::host::detail {

/// HttpOptions::proxy taken apart, so that its password comes into no text of libcurl's.
struct Proxy {
    /// @param url  empty: all is empty
    /// @throws std::invalid_argument with a sentence that does not quote it
    explicit Proxy(const std::string& url);

    std::string url; ///< without user information
    std::string user;
    std::string password;
    std::string peer; ///< "host:port", for people
};

} // namespace connector::host::detail
