#include "cli/terminal/Version.h"
#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

Verb version()
{
    return {.name = "version",
            .summary = "Print the version of this program",
            .examples = "  tarn version",
            .takes = {},
            .run = [](const Invocation& invocation) {
                const std::string text = versionText;
                invocation.out.result(text + "\n", {{"version", text.substr(text.rfind(' ') + 1)}});
            }};
}

} // namespace tarncli::verbs
