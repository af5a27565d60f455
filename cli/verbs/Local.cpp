#include "cli/service/LocalStore.h"
#include "cli/terminal/Text.h"
#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

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

void seeOrEnd(const Invocation& invocation, const std::string& action)
{
    if (action == "status") return localStatus(invocation);
    const bool stopped = LocalStore().stop();
    invocation.out.message(stopped ? "The local store has ended." : "The local store was not running.");
    invocation.out.result("", {{"stopped", stopped}});
}

} // namespace

Verb local()
{
    const auto action = std::make_shared<std::string>();
    return {.name = "local",
            .summary = "See or end the local store",
            .examples = "  tarn local status\n"
                        "  tarn local stop",
            .takes = {{"ACTION",
                       action.get(),
                       "status or stop",
                       {.required = true, .choices = {"status", "stop"}}}},
            .run = [action](const Invocation& invocation) { seeOrEnd(invocation, *action); }};
}

} // namespace tarncli::verbs
