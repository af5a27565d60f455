#pragma once

#include <string>

namespace tarncli {

/// A square pattern that phones read as `text`, two rows of it in one line of a terminal.
/// @param colours  black on white whatever the terminal has; without, light parts are drawn, as suits a dark one
/// @throws Failure when the text is too long for one
std::string qrCode(const std::string& text, bool colours);

} // namespace tarncli
