#pragma once

#include "cli/terminal/Failure.h"
#include "cli/transfer/Origin.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace tarncli {

/// One file or folder below the folder that is to be stored.
struct SourceEntry {
    Origin origin;
    std::string below; ///< UTF-8 names from the walked folder down, joined by '/'
    bool isFolder = false;
    std::uint64_t size = 0;    ///< bytes of a file
    std::int64_t modified = 0; ///< of a local file: nanoseconds since 1970
};

/// What lies below the folder that is to be stored.
struct SourceTree {
    struct Skipped {
        Origin origin;
        std::string reason;
        std::string below = {};
    };

    struct Failed {
        Origin origin;
        Failure failure;
        std::string below = {}; ///< empty: the walked folder itself
    };

    std::vector<SourceEntry> entries; ///< by name; a folder stands before what is in it
    std::vector<Skipped>
        skipped; ///< symbolic links, which are not followed, parts of files, and what is neither file nor folder
    std::vector<Failed> failed; ///< unreadable folders, and names that the service cannot be asked for
};

/// Walks everything below a local folder.
/// @param wants  whether a file or folder below it counts; what is in a folder that does not is not looked at
SourceTree walkLocalTree(
    const std::filesystem::path& root,
    const std::function<bool(const std::string& below, bool isFolder)>& wants = [](const std::string&, bool) {
        return true;
    });

/// @throws Failure (usage) for an empty one, as a script has when its variable is not set
void requireLocalPath(const std::string& place);

} // namespace tarncli
