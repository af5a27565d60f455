#pragma once

#include <string>

namespace tarncli {

/// The service's base URL as every request begins with it, slashes at the end dropped.
///
/// Refused is what would not survive on the way into a request: anything but http and https, a user name, a
/// query, a fragment, an IPv6 literal, percent-encoding. @throws Failure (usage)
std::string checkedEndpoint(const std::string& url);

/// The host of a checked endpoint, without the port.
std::string hostOf(const std::string& endpoint);

/// Whether what is sent to a checked endpoint stays on this machine.
bool isLoopback(const std::string& endpoint);

} // namespace tarncli
