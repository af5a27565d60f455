#pragma once

#include <string>

namespace tarncli {

/// The proxy that the environment names for a checked endpoint; empty: none. As other programs do it: https_proxy or
/// HTTPS_PROXY, http_proxy (in lower case only: a web server passes a request's Proxy header on as HTTP_PROXY), then
/// all_proxy or ALL_PROXY; none for what no_proxy or NO_PROXY lists (domains with all below them, or "*"). What stays
/// on this machine goes through no proxy.
std::string proxyOfEnvironment(const std::string& endpoint);

} // namespace tarncli
