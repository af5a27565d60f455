#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/service/Connection.h"
#include "tarn/fileaccess/FileRecords.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// `*`, `?` and `[…]` in remote names, as shells know them.
namespace tarncli {

enum class LetterCase { matters, ignored };

/// Whether `name` is what `pattern` stands for.
bool matches(const std::string& pattern, const std::string& name,
             LetterCase letterCase = LetterCase::matters);

/// One item that a command is about.
struct RemoteItem {
    RemotePath where;
    std::optional<connector::tarn::FileAttributes> known; ///< when a listing has told them
};

/// Checks what the user wrote, before anything is sent. A pattern may hold '?', which no name may.
/// @throws Failure (usage) as addressable()
RemotePath addressableOrPattern(const std::string& text);

bool hasWildcards(const RemotePath& path);

/// The items that a path stands for: itself, or with wildcards all that match, in the order of the listings; one listing
/// for each folder that a pattern is looked for in. A name that is exactly the pattern is meant literally.
/// @throws Failure; notFound when nothing matches
std::vector<RemoteItem> expand(Connection& connection, const std::string& text);

/// What the item is, asked for unless it is known. @throws Failure
connector::tarn::FileAttributes attributesOf(Connection& connection, const RemoteItem& item);

} // namespace tarncli
