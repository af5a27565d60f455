#pragma once

#include <string>

namespace tarncli {

/// Whether the user says yes at the terminal.
/// @param otherwise  what to do where there is none
/// @throws Failure (usage) with that
bool isConfirmed(const std::string& question, const std::string& otherwise);

} // namespace tarncli
