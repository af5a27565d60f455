#include "tarnd/store/StoreCopy.h"

#include "tarnd/store/ContentCheck.h"
#include "tarnd/store/ContentFolder.h"
#include "tarnd/store/DataDirectory.h"
#include "tarnd/store/Database.h"
#include "tarnd/store/Dialect.h"
#include "tarnd/store/FileSystem.h"
#include "tarnd/store/RemovalTurn.h"
#include "tarnd/store/RowCopy.h"
#include "tarnd/store/Schema.h"

#include <fcntl.h>

#include <algorithm>
#include <fstream>
#include <iterator>

namespace tarnd {

namespace fs = std::filesystem;

namespace {

std::string textOf(const fs::path& path)
{
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
}

void syncFile(const fs::path& path)
{
    const UniqueFd file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file || ::fsync(file.get()) != 0) throw systemError(path);
}

/// All of the text or none of it.
void write(const fs::path& path, const std::string& text)
{
    const auto fresh = path.string() + ".new";
    std::ofstream file(fresh);
    if (!(file << text).flush()) throw systemError(fresh);
    syncFile(fresh);
    fs::rename(fresh, path);
}

void requireFit(const fs::path& source, const fs::path& target, CopyPurpose purpose)
{
    const auto inside = fs::weakly_canonical(target).lexically_relative(fs::canonical(source));
    if (!inside.empty() && *inside.begin() != "..") throw sentences::copyIntoItself(target);
    if (!fs::exists(target) || fs::is_empty(target)) return;
    const bool isBackup = purpose == CopyPurpose::backup && fs::exists(target / backupMark);
    // Which may be what was acknowledged last by a database that was put somewhere else.
    if (!fs::exists(target / "tarn.db") && fs::exists(target / "tarn.db-wal"))
        throw sentences::databaseMissing(target);
    const bool isOther = textOf(target / "store-id") != textOf(source / "store-id");
    if (isOther || (fs::exists(target / "tarn.db") && !isBackup)) throw sentences::targetTaken(target);
}

/// The id comes first and the database last: in between it is no store that could be served.
void claim(const fs::path& source, const fs::path& target, CopyPurpose purpose)
{
    write(target / "store-id", textOf(source / "store-id"));
    if (purpose == CopyPurpose::backup) write(target / backupMark, "");
    // Whoever looked at the last copy and was killed may have left a log: closing takes it into the database.
    if (fs::exists(target / "tarn.db-wal"))
        Database(sqliteDialect(target / "tarn.db"), 1).write([](Transaction&) {});
}

/// One copy of a store on its way.
class Copy {
public:
    Copy(Database& database, const ContentFolder& original, fs::path source, fs::path target)
        : database(database)
        , original(original)
        , source(std::move(source))
        , target(std::move(target))
        , contents(this->target, room)
        , present(contents.ids())
    {
    }

    /// Most contents first, without stopping anybody; then the database and the few that have come since, while
    /// nothing is removed: so all that the database names is there to be taken. Its own rename publishes the copy,
    /// and only then goes what the last one alone had. A backup that is damaged replaces none; what is restored is
    /// checked as a whole afterwards.
    CopyReport run(CopyPurpose purpose)
    {
        CopyReport report;
        const auto before = present;
        bring(original.ids());
        std::vector<std::string> named;
        {
            const RemovalTurn nobodyRemoves(source, RemovalTurn::For::copying, std::chrono::minutes(2));
            if (!nobodyRemoves)
                throw sentences::busy.because("another copy of " + source.string() + " is made");
            // With the log of a copy that was interrupted, which would be taken for the new one's.
            for (const auto* part : {"", "-wal", "-shm"})
                fs::remove(freshDatabase().string() + part);
            copyDatabase();
            named = namedIn(freshDatabase());
            report.missing = bring(named);
        }
        if (purpose == CopyPurpose::backup) requireWhole();
        publish();
        std::vector<std::string> superfluous;
        std::set_difference(present.begin(), present.end(), named.begin(), named.end(),
                            std::back_inserter(superfluous));
        contents.dropNow(superfluous);
        report.contents = present.size() - superfluous.size();
        std::vector<std::string> news;
        std::set_difference(present.begin(), present.end(), before.begin(), before.end(),
                            std::back_inserter(news));
        std::erase_if(news,
                      [&](const auto& id) { return !std::binary_search(named.begin(), named.end(), id); });
        report.added = news.size();
        return report;
    }

private:
    fs::path freshDatabase() const { return target / "tarn.db.new"; }

    /// Row by row from a server, as one snapshot: a file can then be restored by itself.
    void copyDatabase()
    {
        if (database.dialect().copyTo(freshDatabase())) return;
        Database copied(sqliteDialect(freshDatabase()), 1);
        prepareSchema(copied, target);
        copied.write([&](Transaction& to) {
            database.read([&](Transaction& from) { copyRows(from, to, copied.dialect()); });
        });
    }

    static std::vector<std::string> namedIn(const fs::path& file)
    {
        Database copied(sqliteDialect(file), 1);
        try {
            return namedContents(copied);
        } catch (const ServiceError& error) {
            throw sentences::backupDamaged.because(error.detail());
        }
    }

    void requireWhole() const
    {
        const auto faults = Database(sqliteDialect(freshDatabase()), 1).selfCheck();
        if (!faults.empty()) throw sentences::backupDamaged.because(faults.front());
    }

    /// @returns those that the source does not have (any more)
    std::vector<std::string> bring(const std::vector<std::string>& wanted)
    {
        std::vector<std::string> missing, news;
        std::set_difference(wanted.begin(), wanted.end(), present.begin(), present.end(),
                            std::back_inserter(news));
        for (const auto& id : news)
            if (!linkOrCopy(original.contentPath(id), id)) missing.push_back(id);
        std::vector<std::string> got, all;
        std::set_difference(news.begin(), news.end(), missing.begin(), missing.end(),
                            std::back_inserter(got));
        std::merge(present.begin(), present.end(), got.begin(), got.end(), std::back_inserter(all));
        present = std::move(all);
        return missing;
    }

    bool linkOrCopy(const fs::path& from, const std::string& id)
    {
        const auto to = contents.contentPath(id);
        if (::link(from.c_str(), to.c_str()) == 0) return true;
        if (errno == ENOENT) return false;
        // Under its own name only once it is on the disk: what is there is whole, also after a power loss.
        const auto temporary = contents.ownUploads() / id;
        std::error_code error;
        fs::copy_file(from, temporary, fs::copy_options::overwrite_existing, error);
        if (error == std::errc::no_such_file_or_directory) return false;
        if (error) throw sentences::internal.because(temporary.string() + ": " + error.message());
        syncFile(temporary);
        fs::rename(temporary, to);
        return true;
    }

    void publish()
    {
        syncFile(freshDatabase());
        const UniqueFd folder(::open(target.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (!folder || ::syncfs(folder.get()) != 0) throw systemError(target);
        fs::rename(freshDatabase(), target / "tarn.db");
        syncFolder(target);
    }

    Database& database;
    const ContentFolder& original;
    const fs::path source, target;
    DiskRoom room{target, 0};
    ContentFolder contents;
    std::vector<std::string> present; ///< in the target, sorted
};

} // namespace

CopyReport copyStore(Database& database, const ContentFolder& contents, const fs::path& source,
                     const fs::path& target, CopyPurpose purpose)
{
    requireFit(source, target, purpose);
    const DataDirectory lock(target, DataDirectory::Lock::exclusive);
    claim(source, target, purpose);
    return Copy(database, contents, source, target).run(purpose);
}

} // namespace tarnd
