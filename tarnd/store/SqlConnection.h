#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace tarnd {

/// An argument of a statement; a text outlives the call.
using SqlValue = std::variant<std::int64_t, std::string_view>;

/// One row of a result, valid while it is being received. Columns count from 0 and are not NULL.
class SqlRow {
public:
    virtual std::int64_t number(int column) const = 0;
    virtual std::string_view text(int column) const = 0;

protected:
    ~SqlRow() = default;
};

using RowReceiver = std::function<void(const SqlRow&)>;

/// Gets the first row of a result, nullptr when it has none.
using FirstRowReceiver = std::function<void(const SqlRow*)>;

/// Who else must wait while a write goes on.
struct WriteScope {
    std::optional<std::int64_t> user; ///< only writes of this user, and those of all; none: all writes
};

/// One connection to the database. It prepares each statement once and keeps it. One thread at a time.
///
/// All calls fail with ServiceError, what the engine said as its detail.
class SqlConnection {
public:
    virtual ~SqlConnection() = default;

    /// Opens a transaction that is a snapshot.
    virtual void beginRead() = 0;

    /// Opens a transaction for writing: alone in its scope among the writers of all processes. It may be the
    /// first statement that waits for that, and that fails when it cannot be had.
    virtual void beginWrite(const WriteScope& scope) = 0;

    /// False once the engine has ended the transaction by itself, which undoes all of it.
    virtual bool isInTransaction() const = 0;

    virtual void commit() = 0;
    virtual void rollback() = 0;

    /// Runs one statement, outside a transaction as one of its own.
    virtual void execute(const std::string& sql, std::span<const SqlValue> args,
                         const RowReceiver& receive) = 0;

    /// Runs a statement whose result nobody needs; inside a transaction the engine may get it, and fail it, with
    /// the next call only.
    virtual void executeLater(const std::string& sql, std::span<const SqlValue> args)
    {
        execute(sql, args, {});
    }

    /// Runs a query that the engine may get with the next call only: with execute(), or with commit(), which then
    /// happens only after it. Its answer is received before anything else comes back, unless a statement sent along has
    /// failed; what `receive` throws, that call throws.
    virtual void executeAhead(const std::string& sql, std::span<const SqlValue> args,
                              const FirstRowReceiver& receive)
    {
        bool found = false;
        execute(sql, args, [&](const SqlRow& row) {
            if (!std::exchange(found, true)) receive(&row);
        });
        if (!found) receive(nullptr);
    }

    /// Drops what has not gone to the engine yet.
    virtual void dropWaiting() {}

    /// False once the server has gone away from this connection, or takes no writes any more.
    virtual bool isAlive() const = 0;

    /// Whether a commit that has just failed may be found to have happened by the next start.
    virtual bool mayHaveCommitted() const = 0;
};

} // namespace tarnd
