#pragma once

#include "tarnd/http/ClientAddress.h"
#include "tarnd/http/Request.h"
#include "tarnd/store/Store.h"

#include <memory>
#include <string>
#include <string_view>

namespace tarnd {

class Metrics;

/// One request on its way through its handler.
struct Call {
    Store& store;
    const Client& client;
    const std::string& publicUrl; ///< what public links begin with, without a slash at the end
    const Request& request;
    std::string_view tail; ///< what follows the route's path, still encoded; begins with '/' when not empty
    Caller caller;         ///< set where the route needs a session
    const Metrics& metrics;
    Headers trailers = {};          ///< the fields behind a chunked body, when `handle` runs
    std::unique_ptr<Upload> upload; ///< set by the route's `begin`, holds all bytes when `handle` runs
};

/// The path that the percent-encoded path of a URL names; '+' stands for itself.
/// @throws ServiceError badRequest
ItemPath pathOf(std::string_view encoded);

/// The item that the rest of the path and the parameter "bucket" name.
Location itemOf(const Call& call);

/// The segment behind the route's path, empty when there is none.
std::string idOf(const Call& call);

/// The version that "versionId" and "versionLabel" ask for.
VersionChoice versionOf(const Call& call);

} // namespace tarnd
