#pragma once

#include "tarnd/store/ConnectionWatchdog.h"
#include "tarnd/store/ServiceError.h"
#include "tarnd/store/SqlConnection.h"
#include "tarnd/store/UniqueFd.h"

#include <memory>
#include <unordered_map>

struct pg_conn;
struct pg_result;

namespace tarnd {

/// A connection to PostgreSQL. Only execute() and commit() wait for the server, one round trip each: what opens
/// a transaction, what was left for later and what is asked ahead travels with them, and the end of one that was only
/// read is not waited for.
///
/// A connection that was lost between two transactions, or that leads to a server which takes no writes any more, is
/// made anew: to whichever of the servers in the options takes writes now.
class PostgresConnection : public SqlConnection {
public:
    /// @param options libpq's "key=value key=value"
    PostgresConnection(std::string options, bool writing, ConnectionWatchdog& watchdog);
    ~PostgresConnection() override;

    void beginRead() override;
    void beginWrite(const WriteScope& scope) override;
    void commit() override;
    void rollback() override;
    void execute(const std::string& sql, std::span<const SqlValue> args, const RowReceiver& receive) override;
    void executeLater(const std::string& sql, std::span<const SqlValue> args) override;
    void executeAhead(const std::string& sql, std::span<const SqlValue> args,
                      const FirstRowReceiver& receive) override;
    void dropWaiting() override;
    bool isAlive() const override;

    bool isInTransaction() const override { return inTransaction; }

    bool mayHaveCommitted() const override { return !isConnected(); }

private:
    struct Close {
        void operator()(pg_conn* connection) const;
    };

    struct Clear {
        void operator()(pg_result* result) const;
    };

    using Result = std::unique_ptr<pg_result, Clear>;

    struct Statement;

    static void heed(void* connection, const pg_result* notice);

    void connect();
    bool isConnected() const;
    void runAlone(const char* sql);
    void add(const std::string& sql, std::span<const SqlValue> args);
    void addBegin();
    bool isAskedAhead() const;
    Result exchange();
    std::vector<Result> ask(const std::vector<Statement>& batch, bool first);
    std::vector<Result> attempt(const std::vector<Statement>& batch);
    void send(const Statement& statement);
    std::vector<Result> collect();
    void require(bool sent);
    ServiceError failure(const pg_result* result) const;

    const std::string options;
    const bool writing;
    ConnectionWatchdog& watchdog;
    std::unique_ptr<pg_conn, Close> connection;
    UniqueFd socket;      ///< a duplicate: libpq closes its own when a call fails
    ServerAddress server; ///< what it leads to
    ConnectionWatchdog::Moment connected;
    std::unordered_map<std::string, std::string> statements; ///< names of the prepared ones, by their text
    std::size_t prepared = 0;          ///< since the process began, which names the next one
    std::vector<Statement> waiting;    ///< to be sent with the next call that waits for the server
    std::vector<std::string> underWay; ///< what was sent: the text of what is being prepared, or nothing
    bool opening = false;              ///< a transaction begins with the next statement
    bool beginning = false;            ///< what begins it is waiting
    bool inTransaction = false;        ///< the server has begun it
    bool refusesWrites = false;        ///< the server has said so, and another may take them
    bool warned = false;               ///< by the server, since the commit was sent
    std::optional<WriteScope> lock;    ///< to be taken when it begins
};

} // namespace tarnd
