#pragma once

#include "cli/verbs/Verb.h"

#include <string>
#include <vector>

namespace tarncli {

/// Writes the contents of remote files to standard output, one after the other: `cat`, and `get` to "-".
/// @param chosenVersion  label or id; empty: the current one
void writeContents(const Invocation& invocation, const std::vector<std::string>& paths,
                   const std::string& chosenVersion);

} // namespace tarncli
