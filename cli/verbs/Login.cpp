#include "cli/machine/Environment.h"
#include "cli/terminal/Secret.h"
#include "cli/terminal/Text.h"
#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

struct Options {
    std::string user; ///< empty: the profile's
    bool noStoreToken = false;
};

void logIn(const Invocation& invocation, const Options& options)
{
    auto& out = invocation.out;
    Connection connection(invocation.connection, out);
    const auto user = options.user.empty() ? connection.configuredUser() : options.user;
    if (user.empty()) throw usageError("Name the user: `tarn login USER`.");
    if (const auto& known = connection.configuredUser(); user != known && connection.isLocal())
        throw usageError("The local store belongs to \"" + escaped(known) +
                         "\" and needs no login; name a service with --endpoint.");
    // What the environment gives is not written, here as elsewhere: only the session is.
    auto token = connection.isLocal() ? "" : environmentVariable("TARN_TOKEN");
    if (token.empty() && !connection.isLocal()) token = connection.commandedToken();
    const bool given = !token.empty() || connection.isLocal();
    if (!given) token = readSecret("Token of " + escaped(user) + ": ");
    connection.login(user, token, !given && !options.noStoreToken);
    out.message("Logged in to " + connection.serviceName() + " as " + escaped(user) + ".");
    out.result("", {{"user", user}, {"endpoint", connection.url()}});
}

} // namespace

Verb login()
{
    const auto options = std::make_shared<Options>();
    return {.name = "login",
            .summary = "Log in for this and later commands",
            .examples = "  tarn --endpoint https://files.example.org login alice\n"
                        "  pass show tarn | tarn login alice",
            .notes = "The token is that of TARN_TOKEN, or of the profile's token_command, or it is asked "
                     "for or read from standard input. What is typed or read is stored beside the session "
                     "(mode 0600), so that an ended session is renewed without asking.",
            .takes = {{"USER", &options->user, "Whose storage to use; default: the profile's user"},
                      {"--no-store-token", &options->noStoreToken, "Store only the session, not the token"}},
            .run = [options](const Invocation& invocation) { logIn(invocation, *options); }};
}

} // namespace tarncli::verbs
