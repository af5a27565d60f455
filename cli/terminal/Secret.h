#pragma once

#include <string>

namespace tarncli {

/// One line from standard input without the white space around it; from a terminal after `prompt` and without
/// showing what is typed. @throws Failure (usage) when there is none
std::string readSecret(const std::string& prompt);

} // namespace tarncli
