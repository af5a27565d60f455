#pragma once

#include "cli/verbs/Verb.h"

#include <vector>

namespace tarncli {

/// Every verb there is, in the order of the help.
std::vector<Verb> allVerbs();

} // namespace tarncli
