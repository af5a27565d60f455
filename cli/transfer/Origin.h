#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/terminal/Text.h"

#include <filesystem>
#include <string>
#include <variant>

namespace tarncli {

/// Where a content comes from that is to be stored: a file here, or another one in the service.
using Origin = std::variant<std::filesystem::path, RemotePath>;

inline std::string textOf(const Origin& origin)
{
    if (const auto* remote = std::get_if<RemotePath>(&origin)) return remote->text();
    return std::get<std::filesystem::path>(origin).string();
}

/// As a message names it.
inline std::string shown(const Origin& origin)
{
    if (const auto* remote = std::get_if<RemotePath>(&origin)) return remote->quoted();
    return escaped(textOf(origin));
}

} // namespace tarncli
