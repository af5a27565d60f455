#include "tarnd/store/Dialect.h"

#include "tarnd/store/FileSystem.h"
#include "tarnd/store/Sentences.h"

#include <sqlite3.h>

#include <mutex>
#include <unordered_map>

namespace tarnd {

namespace {

/// Once the files of the database were taken away nothing is changed until the next start, not even when they
/// come back: what they hold and what this process takes for true may differ. Any thread.
class DatabaseFiles {
public:
    explicit DatabaseFiles(const std::filesystem::path& file)
        : path(file.string()), database(file), log(path + "-wal")
    {
    }

    /// @param logToo the log is the writer's: when no connection was left the next one begins another
    void require(bool logToo)
    {
        const std::lock_guard lock(mutex);
        gone = gone || !database.isInPlace() || (logToo && !log.isInPlace());
        if (gone) throw sentences::internal.because(path + " was removed or replaced while in use");
    }

    /// With its last connection closed the engine makes a new log.
    void forgetLog()
    {
        const std::lock_guard lock(mutex);
        log.forget();
    }

    const std::string path;

private:
    std::mutex mutex; ///< guards all below
    FileWatch database;
    FileWatch log;
    bool gone = false;
};

struct CloseDatabase {
    void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
};

using DatabasePtr = std::unique_ptr<sqlite3, CloseDatabase>;

/// @return the engine's result; a database that it could not open may tell more
int openDatabase(const std::string& file, int flags, DatabasePtr& database)
{
    // Before the first one: to count its memory, which nobody asks for, the engine takes a lock that all connections
    // share with every allocation, which was a fifteenth of what a read costs.
    [[maybe_unused]] static const int once = sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
    sqlite3* opened = nullptr;
    const int result = sqlite3_open_v2(file.c_str(), &opened, flags, nullptr);
    database.reset(opened);
    return result;
}

struct FinalizeStatement {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};

using StatementPtr = std::unique_ptr<sqlite3_stmt, FinalizeStatement>;

/// Ends a run of a kept statement: until then the engine holds its snapshot.
struct ResetStatement {
    void operator()(sqlite3_stmt* statement) const { sqlite3_reset(statement); }
};

class SqliteRow final : public SqlRow {
public:
    explicit SqliteRow(sqlite3_stmt* statement) : statement(statement) {}

    std::int64_t number(int column) const override { return sqlite3_column_int64(statement, column); }

    std::string_view text(int column) const override
    {
        const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
        return {bytes ? bytes : "", static_cast<std::size_t>(sqlite3_column_bytes(statement, column))};
    }

private:
    sqlite3_stmt* statement;
};

class SqliteConnection : public SqlConnection {
public:
    SqliteConnection(DatabaseFiles& files, bool writing) : files(files)
    {
        require(openDatabase(files.path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                             database));
        run("PRAGMA busy_timeout = 30000"); // a `tarnd user` command may be writing
        std::string mode;
        execute("PRAGMA journal_mode = WAL", {}, [&](const SqlRow& row) { mode = row.text(0); });
        if (mode != "wal")
            throw sentences::internal.because("SQLite cannot keep a write-ahead log in " + files.path);
        run("PRAGMA synchronous = FULL");
        run("PRAGMA foreign_keys = ON");
        run("PRAGMA cache_size = -16384"); // KiB: a folder of 40,000 entries does not fit the default 2 MB
        if (writing) return;
        run("PRAGMA query_only = ON");
        run("PRAGMA wal_autocheckpoint = 0");
    }

    void beginRead() override { run("BEGIN"); }

    void beginWrite(const WriteScope&) override
    {
        files.require(true);
        run("BEGIN IMMEDIATE");
    }

    /// The engine rolls back when the disk is full or fails.
    bool isInTransaction() const override { return sqlite3_get_autocommit(database.get()) == 0; }

    /// Looks afterwards: what was committed to files that are no longer there is not acknowledged.
    void commit() override
    {
        run("COMMIT");
        files.require(true);
    }

    void rollback() override { run("ROLLBACK"); }

    void execute(const std::string& sql, std::span<const SqlValue> args, const RowReceiver& receive) override
    {
        const std::unique_ptr<sqlite3_stmt, ResetStatement> running(prepared(sql));
        auto* const statement = running.get();
        int place = 0;
        for (const auto& arg : args)
            bind(statement, ++place, arg);
        int result = 0;
        while ((result = sqlite3_step(statement)) == SQLITE_ROW)
            if (receive) receive(SqliteRow(statement));
        if (result != SQLITE_DONE) require(result);
    }

    bool isAlive() const override { return true; }

    /// A commit whose sync fails stands in the log already, and is replayed if the process dies before the next
    /// commit overwrites it. Which of the commit's calls failed cannot be told.
    bool mayHaveCommitted() const override { return true; }

private:
    void run(const std::string& sql) { execute(sql, {}, {}); }

    sqlite3_stmt* prepared(const std::string& sql)
    {
        auto& statement = statements[sql];
        if (!statement) {
            sqlite3_stmt* made = nullptr;
            require(sqlite3_prepare_v3(database.get(), sql.c_str(), static_cast<int>(sql.size()) + 1,
                                       SQLITE_PREPARE_PERSISTENT, &made, nullptr));
            statement.reset(made);
        }
        return statement.get();
    }

    void bind(sqlite3_stmt* statement, int place, const SqlValue& value)
    {
        if (const auto* number = std::get_if<std::int64_t>(&value))
            return require(sqlite3_bind_int64(statement, place, *number));
        const auto text = std::get<std::string_view>(value);
        require(sqlite3_bind_text64(statement, place, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8));
    }

    void require(int result) const
    {
        if (result == SQLITE_OK) return;
        const auto& sentence = (result & 0xff) == SQLITE_FULL ? sentences::storageFull : sentences::internal;
        const std::string said = database ? sqlite3_errmsg(database.get()) : sqlite3_errstr(result);
        throw sentence.because("SQLite " + std::to_string(result) + ": " + said);
    }

    DatabaseFiles& files;
    DatabasePtr database;
    std::unordered_map<std::string, StatementPtr> statements; ///< by their text; go before the database
};

DatabasePtr opened(const std::string& file, int flags)
{
    DatabasePtr database;
    const int result = openDatabase(file, flags, database);
    if (result != SQLITE_OK) throw sentences::internal.because(file + ": " + sqlite3_errstr(result));
    return database;
}

class SqliteDialect : public Dialect {
public:
    explicit SqliteDialect(const std::filesystem::path& file) : files(file) {}

    std::unique_ptr<SqlConnection> open(bool writing) override
    {
        files.require(false); // or the engine would make a new, empty database
        auto connection = std::make_unique<SqliteConnection>(files, writing);
        if (writing) files.forgetLog();
        files.require(false);
        return connection;
    }

    void interruptWaits() override {} // none lasts longer than the busy timeout

    void requireFiles() override { files.require(false); }

    /// In one step, which is one snapshot: none that writes meanwhile can make it begin again.
    bool copyTo(const std::filesystem::path& file) const override
    {
        const auto source = opened(files.path, SQLITE_OPEN_READWRITE);
        const auto target = opened(file.string(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE);
        sqlite3_busy_timeout(source.get(), 30'000);
        auto* const copy = sqlite3_backup_init(target.get(), "main", source.get(), "main");
        const bool done = copy != nullptr && sqlite3_backup_step(copy, -1) == SQLITE_DONE;
        if (sqlite3_backup_finish(copy) == SQLITE_OK && done) return true;
        throw sentences::internal.because(std::string("SQLite: ") + sqlite3_errmsg(target.get()));
    }

    bool hasManyWriters() const override { return false; }

    /// AUTOINCREMENT, because a handle must never meet another item under the id of a deleted one.
    std::string idType() const override { return "INTEGER PRIMARY KEY AUTOINCREMENT"; }

    std::string textType() const override { return "TEXT"; }

    std::string tableCount() const override
    {
        return "SELECT COUNT(*) FROM sqlite_master WHERE type = 'table' AND name = $1";
    }

    /// Until the commit, which checks what is left.
    std::pair<std::string, std::string> aroundFilling() const override
    {
        return {"PRAGMA defer_foreign_keys = ON", "SELECT 1"};
    }

    std::string continueIds(const std::string& table) const override
    {
        return "UPDATE sqlite_sequence SET seq = $1 WHERE name = '" + table + "'";
    }

    std::string selfCheck() const override
    {
        return "SELECT integrity_check FROM pragma_integrity_check WHERE integrity_check <> 'ok'";
    }

private:
    DatabaseFiles files;
};

} // namespace

std::unique_ptr<Dialect> sqliteDialect(const std::filesystem::path& file)
{
    return std::make_unique<SqliteDialect>(file);
}

} // namespace tarnd
