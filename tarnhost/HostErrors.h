#pragma once

#include "tarnhost/TransportError.h"

#include <string>

/// The texts of the errors that the host itself raises. Those of the network are in TransportError.
namespace connector::host::errors {

inline constexpr const char* hostStopped = "The host has been shut down.";
inline constexpr const char* nullProvider = "A null service cannot be registered.";
inline constexpr const char* noFuture = "The service returned no future.";
inline constexpr const char* notRunning = "Service exists but is not running.";
inline constexpr const char* notHttp = "The HTTP client takes HTTP requests only.";
inline constexpr const char* notRepeated =
    "The connection was lost before the reply; the request is not sent a second time.";
inline constexpr const char* noReason = "The publisher of the content failed and did not say why.";

/// Of a request that nothing more can be said of.
inline TransportError hostStoppedError()
{
    return TransportError(TransportPhase::shutdown, "", "", hostStopped);
}

inline std::string noService(const std::string& address)
{
    return "No service is registered at \"" + address + "\".";
}

inline std::string addressTaken(const std::string& address)
{
    return "A service is registered at \"" + address + "\" already.";
}

inline std::string badEndpoint(const std::string& reason)
{
    return "The endpoint must be an http:// or https:// URL: " + reason;
}

inline std::string badProxy(const std::string& reason)
{
    return "The proxy must be a URL like http://proxy.example.org:3128: " + reason;
}

} // namespace connector::host::errors
