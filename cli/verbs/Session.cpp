#include "cli/machine/UserFolders.h"
#include "cli/service/LocalStore.h"
#include "cli/terminal/Secret.h"
#include "cli/terminal/Text.h"
#include "cli/verbs/Verbs.h"
#include "tarn/session/SessionMessages.h"

#include <chrono>
#include <nlohmann/json.hpp>

namespace tarncli {

namespace {

std::string askToken(const std::string& user)
{
    const auto given = folders::environment("TARN_TOKEN");
    return given.empty() ? readSecret("Token of " + escaped(user) + ": ") : given;
}

void localStatus(const Invocation& invocation)
{
    const LocalStore store;
    const auto running = store.running();
    nlohmann::json document{{"running", running.has_value()}, {"data", store.dataFolder().string()}};
    std::string text = "The local store in " + escaped(store.dataFolder().string()) + " is not running.\n";
    if (running) {
        document["url"] = running->url;
        document["pid"] = running->pid;
        document["user"] = running->user;
        text = "The local store in " + escaped(store.dataFolder().string()) + " answers at " + running->url +
               " (process " + std::to_string(running->pid) + ").\n";
    }
    invocation.out.result(text, document);
}

} // namespace

namespace verbs {

void login(const Invocation& invocation, const LoginOptions& options)
{
    auto& out = invocation.out;
    Connection connection(invocation.connection, out);
    const auto user = options.user.empty() ? connection.configuredUser() : options.user;
    if (user.empty()) throw usageError("Name the user: `tarn login USER`.");
    if (const auto& known = connection.configuredUser(); user != known && connection.isLocal())
        throw usageError("The local store belongs to \"" + escaped(known) +
                         "\" and needs no login; name a service with --endpoint.");
    const auto token = connection.isLocal() ? "" : askToken(user);
    connection.login(user, token, !options.noStoreToken);
    out.message("Logged in to " + connection.serviceName() + " as " + escaped(user) + ".");
    out.result("", {{"user", user}, {"endpoint", connection.url()}});
}

void logout(const Invocation& invocation)
{
    auto& out = invocation.out;
    Connection connection(invocation.connection, out);
    const bool wasLoggedIn = connection.logout();
    out.message(wasLoggedIn ? "Logged out of " + connection.serviceName() + "."
                            : "You were not logged in to " + connection.serviceName() + ".");
    out.result("", {{"loggedOut", wasLoggedIn}, {"endpoint", connection.url()}});
}

void ping(const Invocation& invocation)
{
    auto connection = invocation.connect();
    const auto begin = std::chrono::steady_clock::now();
    const auto response = connection.call([&] { return connection.session().ping(nullptr); });
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - begin;
    char milliseconds[32];
    std::snprintf(milliseconds, sizeof milliseconds, "%.1f", took.count());
    invocation.out.result(connection.url() + " answers \"" + escaped(response->value) + "\" to " +
                              escaped(connection.user()) + " in " + milliseconds + " ms.\n",
                          {{"endpoint", connection.url()},
                           {"user", connection.user()},
                           {"value", response->value},
                           {"milliseconds", took.count()}});
}

void local(const Invocation& invocation, const LocalOptions& options)
{
    if (options.action == "status") return localStatus(invocation);
    const bool stopped = LocalStore().stop();
    invocation.out.message(stopped ? "The local store has ended." : "The local store was not running.");
    invocation.out.result("", {{"stopped", stopped}});
}

} // namespace verbs

} // namespace tarncli
