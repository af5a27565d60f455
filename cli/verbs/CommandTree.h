#pragma once

#include "cli/verbs/Verb.h"

#include <string>
#include <string_view>
#include <vector>

/// Questions about what can be said on the command line, for help, completion and manual alike.
namespace tarncli {

/// "-r,--recursive" as its parts.
std::vector<std::string> namesOf(const Option& option);

/// Whether the option is one of these dashed names.
bool isNamed(const Option& option, std::string_view name);

/// It begins with a dash; what does not is an argument.
bool isDashed(const Option& option);

/// A flag takes none.
bool takesValue(const Option& option);

/// Null when there is none.
const Verb* findVerb(const CommandTree& commands, std::string_view name);

} // namespace tarncli
