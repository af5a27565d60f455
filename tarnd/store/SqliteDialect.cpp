#include "tarnd/store/Dialect.h"

#include "tarnd/store/FileSystem.h"
#include "tarnd/store/Sentences.h"

#include <Poco/Data/SQLite/Connector.h>
#include <Poco/Data/SQLite/SQLiteException.h>
#include <Poco/Data/Statement.h>

#include <mutex>

namespace tarnd {

namespace {

using Poco::Data::Session;
using Poco::Data::Statement;

void run(Session& session, const std::string& sql)
{
    Statement statement(session);
    statement << sql;
    statement.execute();
}

std::vector<std::string> texts(Session& session, const std::string& sql)
{
    std::vector<std::string> result;
    Statement statement(session);
    statement << sql, Poco::Data::Keywords::into(result);
    statement.execute();
    return result;
}

class SqliteDialect : public Dialect {
public:
    explicit SqliteDialect(const std::filesystem::path& file)
        : file(file.string()), database(file), log(file.string() + "-wal")
    {
        Poco::Data::SQLite::Connector::registerConnector();
    }

    Session open(bool writing) override
    {
        requireFiles(false); // or the engine would make a new, empty database
        Session session(Poco::Data::SQLite::Connector::KEY, file);
        run(session, "PRAGMA busy_timeout = 30000"); // a `tarnd user` command may be writing
        if (texts(session, "PRAGMA journal_mode = WAL") != std::vector<std::string>{"wal"})
            throw sentences::internal.because("SQLite cannot keep a write-ahead log in " + file);
        run(session, "PRAGMA synchronous = FULL");
        run(session, "PRAGMA foreign_keys = ON");
        run(session,
            "PRAGMA cache_size = -16384"); // KiB: a folder of 40,000 entries does not fit the default 2 MB
        if (!writing) {
            run(session, "PRAGMA query_only = ON");
            run(session, "PRAGMA wal_autocheckpoint = 0");
        } else {
            const std::lock_guard lock(mutex);
            log.forget(); // with its last connection closed the engine makes a new one
        }
        requireFiles(false);
        return session;
    }

    void begin(Session& session, bool writing) override
    {
        if (writing) requireFiles(true);
        run(session, writing ? "BEGIN IMMEDIATE" : "BEGIN");
    }

    /// Looks afterwards: what was committed to files that are no longer there is not acknowledged.
    void commit(Session& session) override
    {
        run(session, "COMMIT");
        requireFiles(true);
    }

    void rollback(Session& session) override { run(session, "ROLLBACK"); }

    void execute(Session&, Statement& statement) override { statement.execute(); }

    bool isAlive(Session&) override { return true; }

    /// A commit whose sync fails stands in the log already, and is replayed if the process dies before the next
    /// commit overwrites it. Which of the commit's calls failed cannot be told.
    bool mayHaveCommitted(Session&) override { return true; }

    void interruptWaits() override {} // none lasts longer than the busy timeout

    /// AUTOINCREMENT, because a handle must never meet another item under the id of a deleted one.
    std::string idType() const override { return "INTEGER PRIMARY KEY AUTOINCREMENT"; }

    std::string textType() const override { return "TEXT"; }

    std::string tableCount() const override
    {
        return "SELECT COUNT(*) FROM sqlite_master WHERE type = 'table' AND name = $1";
    }

    ServiceError translated(const Poco::Exception& error, bool) const override
    {
        const bool full = dynamic_cast<const Poco::Data::SQLite::DatabaseFullException*>(&error) != nullptr;
        return (full ? sentences::storageFull : sentences::internal).because(error.displayText());
    }

    std::vector<std::string> selfCheck(Session& session) override
    {
        auto problems = texts(session, "PRAGMA integrity_check");
        if (problems == std::vector<std::string>{"ok"}) problems.clear();
        return problems;
    }

private:
    /// Once the files of the database were taken away nothing is changed until the next start, not even when
    /// they come back: what they hold and what this process takes for true may differ.
    /// @param logToo the log is the writer's: when no connection was left the next one begins another
    void requireFiles(bool logToo)
    {
        const std::lock_guard lock(mutex);
        gone = gone || !database.isInPlace() || (logToo && !log.isInPlace());
        if (gone) throw Poco::FileException("removed or replaced while in use", file);
    }

    std::string file;
    std::mutex mutex; ///< guards all below
    FileWatch database;
    FileWatch log;
    bool gone = false;
};

} // namespace

std::unique_ptr<Dialect> sqliteDialect(const std::filesystem::path& file)
{
    return std::make_unique<SqliteDialect>(file);
}

} // namespace tarnd
