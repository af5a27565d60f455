#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

Verb help()
{
    const auto verb = std::make_shared<std::string>();
    return {.name = "help",
            .summary = "Explain a verb, or list them all",
            .examples = "  tarn help\n"
                        "  tarn help put",
            .takes = {{"VERB", verb.get(), "The verb to explain", {.words = Words::verb}}},
            .run = [verb](const Invocation& invocation) {
                const auto text = invocation.commands.help(*verb);
                invocation.out.result(text, {{"help", text}});
            }};
}

} // namespace tarncli::verbs
