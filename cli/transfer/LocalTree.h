#pragma once

#include "cli/terminal/Failure.h"

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tarncli {

/// One file or folder below a local folder.
struct LocalEntry {
    std::filesystem::path local;
    std::string below; ///< UTF-8 names from the walked folder down, joined by '/'
    bool isFolder = false;
    std::uint64_t size = 0; ///< bytes of a file
};

/// What lies below a local folder.
struct LocalTree {
    struct Skipped {
        std::filesystem::path local;
        std::string reason;
    };

    struct Failed {
        std::filesystem::path local;
        Failure failure;
    };

    std::vector<LocalEntry> entries; ///< by name; a folder stands before what is in it
    std::vector<Skipped>
        skipped; ///< symbolic links, which are not followed, and what is neither file nor folder
    std::vector<Failed> failed; ///< unreadable folders, and names that the service cannot be asked for
};

/// Walks everything below `root`.
LocalTree walkLocalTree(const std::filesystem::path& root);

} // namespace tarncli
