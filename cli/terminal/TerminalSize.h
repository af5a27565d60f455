#pragma once

#include <optional>

namespace tarncli {

/// How many columns the terminal behind a descriptor has, 80 when it does not tell; nothing: it is no terminal.
std::optional<int> terminalColumns(int fd);

} // namespace tarncli
