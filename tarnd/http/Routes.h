#pragma once

#include "tarnd/http/Call.h"
#include "tarnd/http/Reply.h"

#include <span>

namespace tarnd {

enum class Access {
    session, ///< a live session, else 401
    form,    ///< the same, named in the body, which a browser sends without a script
    token,   ///< the handler checks the authentication token
    anybody, ///< no login; replies are pages for people
    web,     ///< no login; the application for browsers, where there is one
    monitor, ///< no login; replies are texts for programs that watch the service
    numbers, ///< the same, for those who may see the numbers
};

enum class Tail {
    none, ///< the path ends with the route's own
    item, ///< the path of an item follows
    id,   ///< one segment or nothing follows
};

/// What a change may depend on.
enum class Conditions {
    none,
    onTags, ///< If-Match and If-None-Match, which the handler minds
};

/// One line of the interface.
struct Route {
    std::string_view method;
    std::string_view path;
    Tail tail;
    Access access;
    Reply (*handle)(Call& call);
    /// Set where a file content comes in: runs before the first byte, sets `call.upload`, and makes a
    /// length or chunks mandatory.
    void (*begin)(Call& call) = nullptr;
    /// What the audit log calls it; empty where it has no line.
    std::string_view event = {};
    Conditions conditions = Conditions::none;
};

/// The whole interface.
std::span<const Route> allRoutes();

/// The route that takes the request. @throws ServiceError badRequest when there is none
const Route& routeOf(const Request& request);

/// The part of the path behind the route's own.
std::string_view tailOf(const Route& route, const Request& request);

} // namespace tarnd
