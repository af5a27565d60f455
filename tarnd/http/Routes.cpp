#include "tarnd/http/Routes.h"

#include "tarnd/http/Handlers.h"
#include "tarnd/http/PlainText.h"
#include "tarnd/http/Sentences.h"

namespace tarnd {

namespace {

constexpr auto onTags = Conditions::onTags;

constexpr Route routes[] = {
    {"GET", "/service/v1/login", Tail::none, Access::token, login, nullptr, "login"},
    {"GET", "/service/v1/logout", Tail::none, Access::session, logout, nullptr, "logout"},
    {"GET", "/service/v1/ping", Tail::none, Access::session, ping},

    {"PUT", "/service/v1/files", Tail::item, Access::session, putFile, beginFile, {}, onTags},
    {"GET", "/service/v1/files", Tail::item, Access::session, readFile},
    {"HEAD", "/service/v1/files", Tail::item, Access::session, readFile},
    {"DELETE", "/service/v1/files", Tail::item, Access::session, deleteFile, nullptr, "remove", onTags},
    {"GET", "/service/v1/filesystem", Tail::item, Access::session, readAttributes},
    {"PUT", "/service/v1/filesystem", Tail::item, Access::session, move, nullptr, "move"},
    {"PUT", "/service/v1/filehandle", Tail::none, Access::session, openHandle},
    {"DELETE", "/service/v1/filehandle", Tail::id, Access::session, closeHandle},

    {"PUT", "/service/v1/folders", Tail::item, Access::session, createFolder},
    {"GET", "/service/v1/folders", Tail::item, Access::session, listFolder},
    {"DELETE", "/service/v1/folders", Tail::item, Access::session, deleteFolder, nullptr, "remove"},

    {"GET", "/service/v1/sharedcontent", Tail::none, Access::session, listSharedContent},
    {"GET", "/service/v1/public/urls", Tail::item, Access::session, getPublicUrl, nullptr, "link"},
    {"PUT", "/service/v1/public/links", Tail::item, Access::session, createPublicLink, nullptr, "link"},
    {"GET", "/service/v1/public/links", Tail::none, Access::session, listPublicLinks},
    {"DELETE", "/service/v1/public/links", Tail::id, Access::session, revokePublicLink, nullptr, "unlink"},
    {"GET", "/public", Tail::item, Access::anybody, openPublicLink},
    {"HEAD", "/public", Tail::item, Access::anybody, openPublicLink},

    {"PUT", "/service/v1/permissions", Tail::none, Access::session, grantPermission, nullptr, "grant"},
    {"DELETE", "/service/v1/permissions", Tail::id, Access::session, revokePermission, nullptr, "revoke"},
    {"GET", "/service/v1/permissions", Tail::none, Access::session, listPermissions},

    {"POST", "/service/v1/download", Tail::item, Access::form, downloadItem},

    {"GET", "/service/v1/versions/files", Tail::item, Access::session, listVersions},
    {"PUT", "/service/v1/versions/files", Tail::item, Access::session, restoreVersion, nullptr, {}, onTags},

    {"GET", "/", Tail::none, Access::web, readWebFile},
    {"HEAD", "/", Tail::none, Access::web, readWebFile},
    {"GET", "/app.css", Tail::none, Access::web, readWebFile},
    {"GET", "/app.js", Tail::none, Access::web, readWebFile},
    {"GET", "/favicon.ico", Tail::none, Access::web, readWebFile},

    {"GET", "/health/live", Tail::none, Access::monitor, tellLive},
    {"HEAD", "/health/live", Tail::none, Access::monitor, tellLive},
    {"GET", "/health/ready", Tail::none, Access::monitor, tellReady},
    {"HEAD", "/health/ready", Tail::none, Access::monitor, tellReady},
    {"GET", "/metrics", Tail::none, Access::numbers, tellMetrics},
};

bool matches(const Route& route, std::string_view path)
{
    if (!path.starts_with(route.path)) return false;
    path.remove_prefix(route.path.size());
    if (path.empty()) return true;
    const bool oneSegment = path.front() == '/' && path.find('/', 1) == std::string_view::npos;
    return route.tail == Tail::item ? path.front() == '/' : route.tail == Tail::id && oneSegment;
}

} // namespace

std::span<const Route> allRoutes()
{
    return routes;
}

const Route& routeOf(const Request& request)
{
    bool known = false;
    for (const auto& route : routes) {
        if (!matches(route, request.path())) continue;
        if (route.method == request.method()) return route;
        known = true;
    }
    if (known) throw sentences::wrongMethod(plainText(request.method()));
    throw sentences::unknownRoute();
}

std::string_view tailOf(const Route& route, const Request& request)
{
    return std::string_view(request.path()).substr(route.path.size());
}

} // namespace tarnd
