#pragma once

#include <filesystem>
#include <string>

/// Where this program keeps things for the user, after the XDG rules; a relative XDG_… is ignored as they
/// say. Nothing is created here. @throws Failure when neither the variable nor HOME tells.
namespace tarncli::folders {

std::filesystem::path config(); ///< $XDG_CONFIG_HOME/tarn or ~/.config/tarn
std::filesystem::path state();  ///< $XDG_STATE_HOME/tarn or ~/.local/state/tarn
std::filesystem::path data();   ///< $XDG_DATA_HOME/tarn or ~/.local/share/tarn

/// The value of an environment variable; empty when it is not set.
std::string environment(const char* name);

/// The login name of who runs this program.
std::string loginName();

} // namespace tarncli::folders
