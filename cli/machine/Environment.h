#pragma once

#include <string>

/// What the process was started with.
namespace tarncli {

/// The value of an environment variable; empty when it is not set.
std::string environmentVariable(const char* name);

/// The login name of who runs this program.
std::string loginName();

} // namespace tarncli
