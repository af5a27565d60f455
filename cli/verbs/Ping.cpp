#include "cli/terminal/Text.h"
#include "cli/verbs/Verb.h"
#include "tarn/session/SessionMessages.h"

#include <chrono>
#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

void pingService(const Invocation& invocation)
{
    auto connection = invocation.connect();
    // After connect(), which may have had to log in.
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

} // namespace

Verb ping()
{
    return {.name = "ping",
            .summary = "Check that the service answers",
            .examples = "  tarn ping",
            .takes = {},
            .run = pingService};
}

} // namespace tarncli::verbs
