#pragma once

#include "tarnd/store/Columns.h"
#include "tarnd/store/Gate.h"
#include "tarnd/store/Sentences.h"

#include <Poco/Data/Binding.h>
#include <Poco/Data/Extraction.h>
#include <Poco/Data/Session.h>
#include <Poco/Data/Statement.h>

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

/// SQL inside one transaction. Placeholders are $1, $2, … and appear for the first time in this order, which reads
/// the same on both engines. Columns are std::int64_t or std::string and must not be NULL. One thread at a time.
class Transaction {
public:
    Transaction(Poco::Data::Session session, Dialect& dialect) : session(std::move(session)), dialect(dialect)
    {
    }

    /// All rows of a query; a std::vector<std::string> among the arguments fills one placeholder per element.
    /// @throws ServiceError internal, insufficientStorage
    template <class... Columns, class... Args>
    std::vector<std::tuple<Columns...>> rows(const std::string& sql, const Args&... args);

    /// All rows of "SELECT columns rest", each as a record.
    template <class... Each, class... Args>
    auto records(const Columns<Each...>& columns, const std::string& rest, const Args&... args)
    {
        std::vector<typename Columns<Each...>::Record> found;
        for (auto& row : rows<typename Each::Stored...>("SELECT " + columns.list() + " " + rest, args...))
            found.push_back(columns.record(std::move(row)));
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

    /// A statement without result.
    template <class... Args>
    void run(const std::string& sql, const Args&... args)
    {
        rows<>(sql, args...);
    }

private:
    void execute(Poco::Data::Statement& statement);

    static void bindOne(Poco::Data::Statement& statement, const std::string& text)
    {
        statement.addBind(Poco::Data::Keywords::bind(text));
    }

    static void bindOne(Poco::Data::Statement& statement, const std::vector<std::string>& texts)
    {
        for (const auto& text : texts)
            bindOne(statement, text);
    }

    template <class Number>
    requires std::integral<Number> || std::is_enum_v<Number>

    static void bindOne(Poco::Data::Statement& statement, Number number)
    {
        statement.addBind(Poco::Data::Keywords::bind(static_cast<Poco::Int64>(number)));
    }

    Poco::Data::Session session;
    Dialect& dialect;
};

/// The metadata: one schema on SQLite and PostgreSQL. All calls may run on any thread and block.
///
/// Writes run one at a time, over all processes: SQLite has one writer anyway, and on PostgreSQL one advisory
/// lock per transaction gives the same. Every check a write makes (name free, parent there, permission live)
/// therefore holds until its commit, without serialization failures to retry and without deadlocks. Contents
/// are on the disk before, so a write lasts a few statements and one commit.
class Database {
public:
    /// @param readers how many may read at a time, each over a connection of its own; the others wait
    explicit Database(std::unique_ptr<Dialect> dialect, std::size_t readers = 4);
    ~Database();

    /// Runs `work(Transaction&)` on a snapshot of the database and returns what it returns.
    /// @throws ServiceError unavailable when the turn to read does not come, internal, and what `work` throws
    template <class Work>
    auto read(Work&& work)
    {
        Lease lease(*this, false);
        return work(lease.transaction());
    }

    /// Runs `work(Transaction&)` as the only write and commits; a throwing `work` changes nothing. The
    /// changes are on the disk when this returns. Reads and writes do not nest.
    /// @throws CommitUnknown, ServiceError unavailable when the turn to write does not come, internal,
    /// insufficientStorage, and what `work` throws
    template <class Work>
    auto write(Work&& work)
    {
        Lease lease(*this, true);
        if constexpr (std::is_void_v<std::invoke_result_t<Work, Transaction&>>) {
            work(lease.transaction());
            lease.commit();
        } else {
            auto result = work(lease.transaction());
            lease.commit();
            return result;
        }
    }

    /// Fails, as busy or unreachable, what has been waiting for a turn or for the server. Any thread.
    void interruptWaits();

    /// A write that makes room, or that must go on while there is none: when the disk is full it is tried
    /// once more after `makeRoom`. `work` may run twice.
    template <class Work>
    auto writeAlsoWhenFull(Work&& work)
    {
        try {
            return write(work);
        } catch (const CommitUnknown&) {
            throw; // a second try could do a second time what the first has done
        } catch (const ServiceError& error) {
            const bool engineFailed = error.kind() == ServiceError::Kind::insufficientStorage ||
                                      error.kind() == ServiceError::Kind::internal;
            if (!engineFailed || !makeRoom || !makeRoom()) throw;
        }
        return write(work);
    }

    /// Called when a write failed; true when there is more room on the disk now. Set it before the first call.
    std::function<bool()> makeRoom;

    const Dialect& dialect() const { return *ownDialect; }

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

    /// A session in an open transaction; gives both back in the end, rolling back what was not committed.
    class Lease {
    public:
        Lease(Database& database, bool writing);
        ~Lease();
        Lease(const Lease&) = delete;
        Lease& operator=(const Lease&) = delete;

        Transaction& transaction() { return *opened; }

        void commit();

    private:
        void begin();
        void giveBack() noexcept;

        Database& database;
        bool writing;
        Turn turn;
        std::optional<Poco::Data::Session> session;
        std::optional<Transaction> opened;
        bool ended = false;
    };

    std::optional<Poco::Data::Session> takeIdle(bool writing);
    void giveBack(Poco::Data::Session session, bool writing);

    std::unique_ptr<Dialect> ownDialect;
    Gate writerGate;                           ///< entered for the length of a write
    Gate readerGate;                           ///< entered for the length of a read
    std::optional<Poco::Data::Session> writer; ///< belongs to who is inside writerGate
    std::mutex idleMutex;                      ///< guards idleReaders
    std::vector<Poco::Data::Session> idleReaders;
};

template <class... Columns, class... Args>
std::vector<std::tuple<Columns...>> Transaction::rows(const std::string& sql, const Args&... args)
{
    std::tuple<std::vector<Columns>...> columns;
    Poco::Data::Statement statement(session);
    statement << sql;
    (bindOne(statement, args), ...);
    std::apply([&](auto&... column) { (statement.addExtract(Poco::Data::Keywords::into(column)), ...); },
               columns);
    execute(statement);

    std::vector<std::tuple<Columns...>> rows;
    if constexpr (sizeof...(Columns) > 0) {
        const auto count = std::get<0>(columns).size();
        rows.reserve(count);
        for (std::size_t i = 0; i < count; ++i)
            std::apply([&](auto&... column) { rows.emplace_back(std::move(column[i])...); }, columns);
    }
    return rows;
}

} // namespace tarnd
