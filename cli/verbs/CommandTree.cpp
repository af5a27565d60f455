#include "cli/verbs/CommandTree.h"

#include <algorithm>
#include <sstream>

namespace tarncli {

std::vector<std::string> namesOf(const Option& option)
{
    std::vector<std::string> names;
    std::stringstream text(option.names);
    for (std::string name; std::getline(text, name, ',');)
        names.push_back(name);
    return names;
}

bool isNamed(const Option& option, std::string_view name)
{
    return std::ranges::count(namesOf(option), name) > 0;
}

bool isDashed(const Option& option)
{
    return *option.names == '-';
}

bool takesValue(const Option& option)
{
    return !std::holds_alternative<bool*>(option.target);
}

const Verb* findVerb(const CommandTree& commands, std::string_view name)
{
    const auto found = std::ranges::find(commands.verbs, name, &Verb::name);
    return found == commands.verbs.end() ? nullptr : &*found;
}

} // namespace tarncli
