#pragma once

#include <filesystem>

/// Where this program keeps things for the user, after the XDG rules; a relative XDG_… is ignored as they
/// say. Nothing is created here. @throws Failure when neither the variable nor HOME tells.
namespace tarncli::folders {

std::filesystem::path config(); ///< $XDG_CONFIG_HOME/tarn or ~/.config/tarn
std::filesystem::path state();  ///< $XDG_STATE_HOME/tarn or ~/.local/state/tarn
std::filesystem::path data();   ///< $XDG_DATA_HOME/tarn or ~/.local/share/tarn

} // namespace tarncli::folders
