#include "cli/service/LocalStore.h"
#include "cli/terminal/Text.h"
#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

std::string stateOf(const std::optional<LocalStore::Server>& server)
{
    if (!server) return "is not running";
    const auto process = " (process " + std::to_string(server->pid) + ")";
    return server->answers ? "answers at " + escaped(server->url) + process
                           : "runs but does not answer" + process;
}

void showStatus(const Invocation& invocation)
{
    const LocalStore store; // rather than a connection, which would start it
    const auto server = store.server();
    nlohmann::json document{{"running", server.has_value()}, {"data", store.dataFolder().string()}};
    if (server) {
        document["answers"] = server->answers;
        document["url"] = server->url;
        document["pid"] = server->pid;
    }
    invocation.out.result("The local store in " + escaped(store.dataFolder().string()) + " " +
                              stateOf(server) + ".\n",
                          document);
}

void seeOrEnd(const Invocation& invocation, const std::string& action)
{
    if (action == "status") return showStatus(invocation);
    const bool stopped = LocalStore().stop();
    invocation.out.message(stopped ? "Stopped the local store." : "The local store was not running.");
    invocation.out.result("", {{"stopped", stopped}});
}

} // namespace

Verb local()
{
    const auto action = std::make_shared<std::string>();
    return {.name = "local",
            .summary = "Show whether the local store runs, or stop it",
            .examples = "  tarn local status\n"
                        "  tarn local stop",
            .takes = {{"ACTION",
                       action.get(),
                       "status or stop",
                       {.required = true, .choices = {"status", "stop"}}}},
            .run = [action](const Invocation& invocation) { seeOrEnd(invocation, *action); }};
}

} // namespace tarncli::verbs
