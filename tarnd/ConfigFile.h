#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tarnd {

/// Gives the options of `command` what the file says where the command line says nothing. Keys are the names of the
/// options of `tarnd serve`; those that `command` does not have are skipped. Paths are relative to the file.
/// @throws CLI::ConfigError with file, line and reason
void applyConfigFile(const std::string& file, CLI::App& command);

/// The same for `tarnd serve`, without serving.
/// @throws CLI::ParseError
void checkConfigFile(const std::string& file);

} // namespace tarnd
