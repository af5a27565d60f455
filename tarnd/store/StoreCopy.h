#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tarnd {

class ContentFolder;
class Database;

struct CopyReport {
    std::uint64_t contents = 0;       ///< that the copy has now
    std::uint64_t added = 0;          ///< of these, linked or copied this time
    std::vector<std::string> missing; ///< ids of contents that versions name and the source does not have
};

/// The file that tells a backup, which may be replaced, from a store that somebody works with.
constexpr auto backupMark = "backup";

/// What the copy is for.
enum class CopyPurpose {
    backup,  ///< may be there already, from the last time: then it is brought up to date
    restore, ///< must not be there yet
};

/// Makes `target` a data directory with everything that was committed in `source` when the call began, also while a
/// service works on it. Contents are linked where one file system holds both, and copied otherwise; those that are
/// there already stay. Interrupted, it leaves the last copy as it was, and the next call goes on.
/// @param source  the data directory of both; the copy has the database as its file tarn.db, whatever the engine
/// @throws ServiceError conflict for a target that is something else, in use or inside the source, internal
CopyReport copyStore(Database& database, const ContentFolder& contents, const std::filesystem::path& source,
                     const std::filesystem::path& target, CopyPurpose purpose);

} // namespace tarnd
