#pragma once

#include <cerrno>
#include <string>
#include <system_error>

namespace connector::host::detail {

/// Keeps a name of this machine that holds NUL from meaning another file, which it ends the name of.
/// @throws std::system_error
inline void checkLocalName(const std::string& name)
{
    if (name.find('\0') == std::string::npos) return;
    throw std::system_error(EINVAL, std::generic_category(),
                            "The name of the local file holds a NUL character");
}

} // namespace connector::host::detail
