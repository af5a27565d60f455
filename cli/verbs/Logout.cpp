#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

void logOut(const Invocation& invocation)
{
    auto& out = invocation.out;
    // Not connect(), which would log in where no session is left.
    Connection connection(invocation.connection, out);
    const bool wasLoggedIn = connection.logout();
    out.message(wasLoggedIn ? "Logged out of " + connection.serviceName() + "."
                            : "You were not logged in to " + connection.serviceName() + ".");
    out.result("", {{"loggedOut", wasLoggedIn}, {"endpoint", connection.url()}});
}

} // namespace

Verb logout()
{
    return {.name = "logout",
            .summary = "End the session and forget the token",
            .examples = "  tarn logout",
            .takes = {},
            .run = logOut};
}

} // namespace tarncli::verbs
