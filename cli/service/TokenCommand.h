#pragma once

#include <string>

namespace tarncli {

/// The token that a password manager gives: the first line of what `command` writes, run by the shell with this
/// program's terminal, since it may ask for a passphrase.
/// @throws Failure (notLoggedIn) when the command fails or writes nothing
std::string tokenFrom(const std::string& command);

} // namespace tarncli
