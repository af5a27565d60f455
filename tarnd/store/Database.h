#pragma once

#include "tarnd/store/Columns.h"
#include "tarnd/store/Gate.h"
#include "tarnd/store/Histogram.h"
#include "tarnd/store/Sentences.h"
#include "tarnd/store/SqlConnection.h"
#include "tarnd/store/WriteQueue.h"

#include <concepts>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace tarnd {

class Dialect;

/// The commit failed in a way that leaves open whether the changes are in: its answer did not arrive, or the
/// disk failed it. What the transaction may have made reachable must be left alone.
struct CommitUnknown : ServiceError {
    explicit CommitUnknown(const ServiceError& error) : ServiceError(error) {}
};

/// SQL inside one transaction, or one statement by itself. Placeholders are $1, $2, … and appear for the first time
/// in this order, which reads the same on both engines. Columns are std::int64_t or std::string and must not be NULL.
/// One thread at a time.
class Transaction {
public:
    explicit Transaction(SqlConnection& connection) : connection(connection) {}

    /// All rows of a query; a std::vector<std::string> among the arguments fills one placeholder per element.
    /// @throws ServiceError internal, insufficientStorage
    template <class... Columns, class... Args>
    std::vector<std::tuple<Columns...>> rows(const std::string& sql, const Args&... args);

    /// Hands on each row of "SELECT columns rest" as a record.
    template <class... Each, class Receive, class... Args>
    void eachRecord(const Columns<Each...>& columns, Receive receive, const std::string& rest,
                    const Args&... args)
    {
        connection.execute(
            "SELECT " + columns.list() + " " + rest, valuesOf(args...), [&](const SqlRow& row) {
                receive(
                    columns.record(tuple<typename Each::Stored...>(row, std::index_sequence_for<Each...>())));
            });
    }

    /// All of them.
    template <class... Each, class... Args>
    auto records(const Columns<Each...>& columns, const std::string& rest, const Args&... args)
    {
        using Record = typename Columns<Each...>::Record;
        std::vector<Record> found;
        eachRecord(
            columns, [&](Record&& record) { found.push_back(std::move(record)); }, rest, args...);
        return found;
    }

    /// The first of them, if there is one.
    template <class... Each, class... Args>
    auto record(const Columns<Each...>& columns, const std::string& rest, const Args&... args)
    {
        auto all = records(columns, rest, args...);
        return all.empty() ? std::nullopt : std::optional(std::move(all.front()));
    }

    /// The first row, if there is one.
    template <class... Columns, class... Args>
    std::optional<std::tuple<Columns...>> row(const std::string& sql, const Args&... args)
    {
        auto all = rows<Columns...>(sql, args...);
        return all.empty() ? std::nullopt : std::optional(std::move(all.front()));
    }

    /// The only column of the first row, if there is one.
    template <class Column, class... Args>
    std::optional<Column> value(const std::string& sql, const Args&... args)
    {
        auto first = row<Column>(sql, args...);
        return first ? std::optional(std::move(std::get<0>(*first))) : std::nullopt;
    }

    /// A statement without result. Inside a transaction it may go to the engine with the next query or with the
    /// commit, which then fail in its place.
    template <class... Args>
    void run(const std::string& sql, const Args&... args)
    {
        connection.executeLater(sql, valuesOf(args...));
    }

    /// The same with values that are not known by their number and types here.
    void runWith(const std::string& sql, std::span<const SqlValue> args)
    {
        connection.executeLater(sql, args);
    }

    /// A query that may go to the engine with the next one or before the commit: `receive` gets its first row, nullptr
    /// when there is none, before anything else comes back, and what it throws fails that. Where a statement after it
    /// fails, that is told instead: what must not be told before belongs into the next query's place. It and what it
    /// holds on to last until then.
    template <class... Args>
    void ahead(const std::string& sql, const FirstRowReceiver& receive, const Args&... args)
    {
        connection.executeAhead(sql, valuesOf(args...), receive);
    }

    /// Hands on the rows of a query one by one, of any columns.
    void each(const std::string& sql, std::span<const SqlValue> args, const RowReceiver& receive)
    {
        connection.execute(sql, args, receive);
    }

    /// Waits for all that was run so far; what of it failed fails this.
    void settle() { connection.execute("SELECT 1", {}, {}); }

private:
    template <class... Args>
    static std::vector<SqlValue> valuesOf(const Args&... args)
    {
        std::vector<SqlValue> values;
        values.reserve(sizeof...(Args));
        (add(values, args), ...);
        return values;
    }

    static void add(std::vector<SqlValue>& values, const std::string& text)
    {
        values.emplace_back(std::string_view(text));
    }

    static void add(std::vector<SqlValue>& values, const std::vector<std::string>& texts)
    {
        for (const auto& text : texts)
            add(values, text);
    }

    template <class Number>
    requires std::integral<Number> || std::is_enum_v<Number>

    static void add(std::vector<SqlValue>& values, Number number)
    {
        values.emplace_back(static_cast<std::int64_t>(number));
    }

    template <class Column>
    static Column value(const SqlRow& row, std::size_t column)
    {
        if constexpr (std::is_same_v<Column, std::string>)
            return std::string(row.text(static_cast<int>(column)));
        else
            return row.number(static_cast<int>(column));
    }

    template <class... Columns, std::size_t... I>
    static std::tuple<Columns...> tuple(const SqlRow& row, std::index_sequence<I...>)
    {
        return {value<Columns>(row, I)...};
    }

    SqlConnection& connection;
};

/// The metadata: one schema on SQLite and PostgreSQL. All calls may run on any thread and block.
///
/// Writes run one at a time within their scope, over all processes: SQLite has one writer anyway, and on
/// PostgreSQL advisory locks give the same for each user. Every check a write makes (name free, parent there,
/// permission live) is about what belongs to one user and therefore holds until its commit, without
/// serialization failures to retry and without deadlocks. Contents are on the disk before, so a write lasts a
/// few statements and one commit.
class Database {
public:
    /// @param readers how many may read at a time, each over a connection of its own; the others wait
    explicit Database(std::unique_ptr<Dialect> dialect, std::size_t readers = 4);
    ~Database();

    /// Runs `work(Transaction&)`, which makes one statement, or several about different things, and returns what it
    /// returns.
    /// @throws as read()
    template <class Work>
    auto lookUp(Work&& work)
    {
        Lease lease(*this, Lease::Mode::lookUp);
        return work(lease.transaction());
    }

    /// Runs `work(Transaction&)` on a snapshot of the database and returns what it returns.
    /// @throws ServiceError unavailable when the turn to read does not come, internal, and what `work` throws
    template <class Work>
    auto read(Work&& work)
    {
        Lease lease(*this, Lease::Mode::read);
        return work(lease.transaction());
    }

    enum class Statements { one, several };

    /// lookUp() or read(), by how many statements `work` makes: only between two can anything change.
    template <class Work>
    auto read(Statements number, Work&& work)
    {
        Lease lease(*this, number == Statements::one ? Lease::Mode::lookUp : Lease::Mode::read);
        return work(lease.transaction());
    }

    /// Runs `work(Transaction&)` as the only write in its scope and commits; a throwing `work` changes nothing.
    /// The changes are on the disk when this returns. `work` may run on another thread, while this one waits. Reads
    /// and writes do not nest.
    /// @throws CommitUnknown, ServiceError unavailable when the turn to write does not come, internal,
    /// insufficientStorage, and what `work` throws
    template <class Work>
    auto write(const WriteScope& scope, Work&& work)
    {
        using Result = std::invoke_result_t<Work, Transaction&>;
        if constexpr (std::is_void_v<Result>) {
            runWrite([&](Transaction& transaction) { work(transaction); }, scope);
        } else {
            std::optional<Result> result;
            runWrite([&](Transaction& transaction) { result.emplace(work(transaction)); }, scope);
            return std::move(*result);
        }
    }

    /// The same, alone among all writes.
    template <class Work>
    auto write(Work&& work)
    {
        return write(WriteScope{}, work);
    }

    /// Fails, as busy or unreachable, what has been waiting for a turn or for the server. Any thread.
    void interruptWaits();

    /// A write that makes room, or that must go on while there is none: when the disk is full it is tried
    /// once more after `makeRoom`. `work` may run twice.
    template <class Work>
    auto writeAlsoWhenFull(const WriteScope& scope, Work&& work)
    {
        try {
            return write(scope, work);
        } catch (const CommitUnknown&) {
            throw; // a second try could do a second time what the first has done
        } catch (const ServiceError& error) {
            const bool engineFailed = error.kind() == ServiceError::Kind::insufficientStorage ||
                                      error.kind() == ServiceError::Kind::internal;
            if (!engineFailed || !makeRoom || !makeRoom()) throw;
        }
        return write(scope, work);
    }

    template <class Work>
    auto writeAlsoWhenFull(Work&& work)
    {
        return writeAlsoWhenFull(WriteScope{}, work);
    }

    /// Called when a write failed; true when there is more room on the disk now. Set it before the first call.
    std::function<bool()> makeRoom;

    const Dialect& dialect() const { return *ownDialect; }

    /// Who reads and who writes at the moment, and who waits for a turn to.
    Gate::Use readerUse() { return readers.gate.use(); }

    Gate::Use writerUse();

    /// How long commits took, with their syncs.
    const Histogram& commits() const { return commitTimes; }

    /// @throws ServiceError as Dialect::requireFiles
    void requireFiles();

    /// Faults that the engine finds in itself.
    std::vector<std::string> selfCheck();

private:
    /// A place inside a gate.
    class Turn {
    public:
        explicit Turn(Gate& gate);

        ~Turn() { gate.leave(); }

        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;

    private:
        Gate& gate;
    };

    using ConnectionPtr = std::unique_ptr<SqlConnection>;

    /// Connections of one kind, and the turns to use them.
    struct Pool {
        explicit Pool(std::size_t size) : gate(size) {}

        Gate gate; ///< entered for the length of a use
        std::mutex mutex;
        std::vector<ConnectionPtr> idle; ///< guarded by the mutex
    };

    /// A connection, in an open transaction unless only to look something up; gives it back in the end,
    /// rolling back what was not committed.
    class Lease {
    public:
        enum class Mode { lookUp, read, write };

        Lease(Database& database, Mode mode, const WriteScope& scope = {});
        ~Lease();
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;

        Transaction& transaction() { return *opened; }

        void runPart(WriteQueue::Entry& part);
        void commit();

    private:
        void begin(const WriteScope& scope);
        void giveBack() noexcept;

        Database& database;
        Mode mode;
        Pool& pool;
        Turn turn;
        ConnectionPtr connection;
        std::optional<Transaction> opened;
        bool ended = false;
    };

    void runWrite(const WriteQueue::Work& work, const WriteScope& scope);
    void lead(WriteQueue::Entry& own);

    std::unique_ptr<Dialect> ownDialect;
    Histogram commitTimes;
    WriteQueue queue; ///< where there is only one writer
    Pool writers;
    Pool readers;
};

template <class... Columns, class... Args>
std::vector<std::tuple<Columns...>> Transaction::rows(const std::string& sql, const Args&... args)
{
    std::vector<std::tuple<Columns...>> rows;
    connection.execute(sql, valuesOf(args...), [&](const SqlRow& row) {
        rows.push_back(tuple<Columns...>(row, std::index_sequence_for<Columns...>()));
    });
    return rows;
}

} // namespace tarnd
