#pragma once

#include "tarnd/store/UniqueFd.h"

#include <filesystem>
#include <optional>
#include <string>

namespace tarnd {

class ContentFolder;
class Database;

/// The folder that `--data` names, and its claim on it:
///
/// DIR/lock       locked while a process uses the directory; alone with SQLite, together with PostgreSQL.
///                Who holds it alone can be asked for (F_GETLK), and writes its process id and URL into it
/// DIR/store-id   the id of the database that the contents belong to
/// DIR/tarn.db    the SQLite database, unless it is elsewhere
class DataDirectory {
public:
    /// Makes the folder if it is missing and takes the lock, which lasts as long as this object.
    enum class Lock { none, shared, exclusive };
    DataDirectory(std::filesystem::path path, Lock lock);

    const std::filesystem::path& path() const { return folder; }

    std::filesystem::path databaseFile() const { return folder / "tarn.db"; }

    /// Checks that the contents belong to this database; a new database is joined to an empty directory, once.
    /// Without this check a start with the wrong database would take every content for an orphan and remove
    /// it.
    /// @throws ServiceError conflict
    void join(Database& database, ContentFolder& contents) const;

    /// Writes into the lock file where this process can be reached: {"pid":1234,"url":"http://127.0.0.1:7070"}.
    /// Text with another id than the lock's owner is that of a process from before. Does nothing where several
    /// share the directory.
    void announce(const std::string& url) const;

private:
    void identify();
    std::optional<std::string> storeId() const;
    std::string claimStoreId(ContentFolder& contents) const;

    std::filesystem::path folder;
    UniqueFd claim;
    bool identified = false; ///< alone, and known to F_GETLK
};

} // namespace tarnd
