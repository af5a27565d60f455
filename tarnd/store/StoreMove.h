#pragma once

#include "tarnd/store/Engine.h"

#include <cstdint>
#include <filesystem>
#include <functional>

namespace tarnd {

class ObjectContents;

struct MoveReport {
    std::uint64_t rows =
        0; ///< of all tables; 0 in what `all` tells, and for what an earlier attempt has finished
    std::uint64_t contents =
        0; ///< with `objects`: copied, or found from an earlier attempt; all of them compared
    std::uint64_t bytes = 0; ///< of these contents
};

/// Told often, from several threads, one at a time.
using MoveProgress = std::function<void(const MoveReport& soFar, const MoveReport& all)>;

/// Takes a store along that nobody uses: its contents to `objects` if there are any, each read back and compared with
/// its SHA-256, and then its rows to `target` in one transaction, compared with what was read. The source stays as it
/// is. What an interrupted attempt has brought is not brought again, and a finished one is only found to be so.
/// @param target   has its tables
/// @param objects  null: the contents stay where they are
/// @throws ServiceError conflict for a target that has something else, contentsMissing
MoveReport moveStore(Engine source, Database& target, ObjectContents* objects, const MoveProgress& progress);

/// Renames what would let somebody serve the store that was moved from `dataDir`, to "….moved".
void setMovedAside(const std::filesystem::path& dataDir, bool contentsToo);

} // namespace tarnd
