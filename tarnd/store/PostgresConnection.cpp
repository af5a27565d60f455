#include "tarnd/store/PostgresConnection.h"

#include "tarnd/store/Sentences.h"

#include <libpq-fe.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <endian.h>

namespace tarnd {

namespace {

/// Set unless the URL, the role or the server says otherwise. A process that stops inside a write loses its
/// connection, and with it the lock, before those who wait for the lock give up. The server gives up a client
/// that does not read, too.
constexpr const char* sessionDefaults = R"(
    SELECT set_config(name, value, false)
    FROM (VALUES ('idle_in_transaction_session_timeout', '5s'),
                 ('lock_timeout', '10s'),
                 ('tcp_user_timeout', '10s')) AS wanted(name, value)
    WHERE current_setting(name) = '0')";

/// A reader sees one snapshot; a writer sees what was committed before it got its turn.
constexpr const char* readerLevel =
    "SET SESSION CHARACTERISTICS AS TRANSACTION ISOLATION LEVEL REPEATABLE READ, READ ONLY";
constexpr const char* writerLevel =
    "SET SESSION CHARACTERISTICS AS TRANSACTION ISOLATION LEVEL READ COMMITTED";

/// Locks of the service among all advisory locks of the database.
constexpr std::int64_t lockOfAll = 1952543342;
const std::string takeLockOfAll = "SELECT pg_advisory_xact_lock($1)";
/// Writes of a user go on beside those of others, and not beside a write of all.
const std::string takeLockOfUser = "SELECT pg_advisory_xact_lock_shared($1), pg_advisory_xact_lock($2)";

/// Of a standby, or of a server that is being replaced.
constexpr std::string_view readOnlyState = "25006";

/// An argument as the server reads it; of a number eight bytes, the highest first.
struct Bound {
    explicit Bound(const SqlValue& value) : isText(std::holds_alternative<std::string_view>(value))
    {
        if (isText) {
            bytes = std::get<std::string_view>(value);
            return;
        }
        const auto number = htobe64(static_cast<std::uint64_t>(std::get<std::int64_t>(value)));
        bytes.assign(reinterpret_cast<const char*>(&number), sizeof number);
    }

    Oid type() const { return isText ? 25 : 20; } // text, int8

    bool isText;
    std::string bytes;
};

class PostgresRow final : public SqlRow {
public:
    PostgresRow(const PGresult* result, int row) : result(result), row(row) {}

    std::int64_t number(int column) const override
    {
        std::int64_t value = 0;
        const auto digits = text(column);
        std::from_chars(digits.data(), digits.data() + digits.size(), value);
        return value;
    }

    std::string_view text(int column) const override
    {
        return {PQgetvalue(result, row, column), static_cast<std::size_t>(PQgetlength(result, row, column))};
    }

private:
    const PGresult* result;
    int row;
};

/// What people are told of an error with this SQLSTATE.
const Sentence& sentenceFor(std::string_view state, bool alive)
{
    struct Row {
        std::string_view state; ///< or its first characters
        const Sentence& sentence;
    };

    static constexpr Row rows[] = {
        {"53100", sentences::storageFull},    // disk full
        {"55P03", sentences::busy},           // lock_timeout
        {"57014", sentences::busy},           // statement_timeout, or cancelled by the operator
        {"40", sentences::busy},              // deadlock, serialization: not by us alone
        {"42501", sentences::databaseRights}, // insufficient privilege
        {readOnlyState, sentences::databaseGone},
        {"53", sentences::databaseGone},  // too many connections, out of memory
        {"57P", sentences::databaseGone}, // stopping, starting, idle for too long
        {"08", sentences::databaseGone},  // connection lost
    };
    const auto* row = std::find_if(std::begin(rows), std::end(rows),
                                   [&](const Row& each) { return state.starts_with(each.state); });
    if (row != std::end(rows)) return row->sentence;
    return alive ? sentences::internal : sentences::databaseGone;
}

std::string_view stateOf(const PGresult* result)
{
    const char* state = result ? PQresultErrorField(result, PG_DIAG_SQLSTATE) : nullptr;
    return state ? state : "";
}

} // namespace

/// Keeps what the caller's texts may no longer hold when it is sent.
struct PostgresConnection::Statement {
    Statement(std::string text, std::span<const SqlValue> values)
        : sql(std::move(text)), args(values.begin(), values.end())
    {
    }

    std::string sql;
    std::vector<Bound> args;
    FirstRowReceiver receive = {};
};

void PostgresConnection::Close::operator()(pg_conn* connection) const
{
    PQfinish(connection);
}

void PostgresConnection::Clear::operator()(pg_result* result) const
{
    PQclear(result);
}

PostgresConnection::PostgresConnection(std::string options, bool writing, ConnectionWatchdog& watchdog)
    : options(std::move(options)), writing(writing), watchdog(watchdog)
{
    connect();
}

PostgresConnection::~PostgresConnection() = default;

void PostgresConnection::connect()
{
    statements.clear();
    underWay.clear();
    refusesWrites = false;
    connection.reset(PQconnectdb(options.c_str()));
    require(isConnected());
    PQsetNoticeReceiver(connection.get(), heed, this);
    socket = UniqueFd(::dup(PQsocket(connection.get())));
    server = {PQhost(connection.get()), PQhostaddr(connection.get()), PQport(connection.get())};
    const auto* encoding = PQparameterStatus(connection.get(), "server_encoding");
    if (!encoding || std::string_view(encoding) != "UTF8")
        throw sentences::badDatabaseUrl("the encoding of the database is not UTF8.");
    const ConnectionWatchdog::Watch watch(watchdog, socket.get(), server);
    runAlone("SET client_min_messages TO warning");
    runAlone(sessionDefaults);
    runAlone(writing ? writerLevel : readerLevel);
    require(PQenterPipelineMode(connection.get()) == 1);
    connected = std::chrono::steady_clock::now();
}

void PostgresConnection::heed(void* connection, const pg_result* notice)
{
    static_cast<PostgresConnection*>(connection)->warned = true;
    std::fputs(PQresultErrorMessage(notice), stderr);
}

void PostgresConnection::runAlone(const char* sql)
{
    const Result result(PQexec(connection.get(), sql));
    const auto status = PQresultStatus(result.get());
    if (status != PGRES_COMMAND_OK && status != PGRES_TUPLES_OK) throw failure(result.get());
}

void PostgresConnection::beginRead()
{
    opening = true;
    lock.reset();
}

void PostgresConnection::beginWrite(const WriteScope& scope)
{
    opening = true;
    lock = scope;
}

/// What is sent with the commit is not sent again when the connection is lost; so a transaction begins before it. What
/// was asked ahead may forbid the commit, and is answered before it, too. A commit that no longer waits for the
/// standby, because an operator cancelled it, succeeds with a warning: it is lost if the standby takes over.
void PostgresConnection::commit()
{
    opening = false;
    if (!inTransaction && waiting.empty()) return; // nothing was asked
    if (!inTransaction || isAskedAhead()) exchange();
    warned = false;
    add("COMMIT", {});
    const auto result = exchange();
    inTransaction = false;
    if (std::string_view(PQcmdStatus(result.get())) != "COMMIT") throw failure(result.get());
    if (!warned) return;
    connection.reset(); // stands for an outcome that is unknown
    throw sentences::databaseGone.because("PostgreSQL warned of the commit.");
}

/// The server ends the transaction as soon as it reads this; its answer is read before the next statement.
void PostgresConnection::rollback()
{
    opening = false;
    dropWaiting();
    if (!std::exchange(inTransaction, false) || !isAlive()) return;
    send({"ROLLBACK", {}});
    require(PQpipelineSync(connection.get()) == 1 && PQflush(connection.get()) >= 0);
}

void PostgresConnection::execute(const std::string& sql, std::span<const SqlValue> args,
                                 const RowReceiver& receive)
{
    add(sql, args);
    const auto result = exchange();
    for (int row = 0; receive && row < PQntuples(result.get()); ++row)
        receive(PostgresRow(result.get(), row));
}

void PostgresConnection::executeLater(const std::string& sql, std::span<const SqlValue> args)
{
    const bool alone = !opening && !beginning && !inTransaction;
    add(sql, args);
    if (alone) exchange();
}

void PostgresConnection::executeAhead(const std::string& sql, std::span<const SqlValue> args,
                                      const FirstRowReceiver& receive)
{
    add(sql, args);
    waiting.back().receive = receive;
}

void PostgresConnection::dropWaiting()
{
    beginning = false;
    waiting.clear();
}

bool PostgresConnection::isAskedAhead() const
{
    return std::any_of(waiting.begin(), waiting.end(),
                       [](const auto& each) { return each.receive != nullptr; });
}

void PostgresConnection::add(const std::string& sql, std::span<const SqlValue> args)
{
    if (std::exchange(opening, false)) addBegin();
    waiting.emplace_back(sql, args);
}

void PostgresConnection::addBegin()
{
    beginning = true;
    waiting.emplace_back("BEGIN", std::span<const SqlValue>());
    if (!lock) return;
    if (lock->user) {
        const SqlValue args[] = {lockOfAll, -*lock->user}; // below zero, where no lock of all is
        waiting.emplace_back(takeLockOfUser, args);
    } else {
        const SqlValue args[] = {lockOfAll};
        waiting.emplace_back(takeLockOfAll, args);
    }
}

/// Sends what waits; returns the answer to the last of it, once those to what was asked ahead are received.
PostgresConnection::Result PostgresConnection::exchange()
{
    const bool first = !inTransaction;
    inTransaction = std::exchange(beginning, false) || inTransaction;
    const auto batch = std::exchange(waiting, {});
    auto answers = ask(batch, first);
    for (std::size_t i = 0; i < batch.size(); ++i) {
        if (!batch[i].receive) continue;
        const PostgresRow row(answers[i].get(), 0);
        batch[i].receive(PQntuples(answers[i].get()) > 0 ? &row : nullptr);
    }
    return std::move(answers.back());
}

/// Returns the answers in order. That the server has restarted since the last use, or takes no writes any more, shows
/// at the first statement, which is then sent over a new connection; what was waited for and then cut off would be
/// waited for again. Where another connection has met silence, this one does not wait for it.
std::vector<PostgresConnection::Result> PostgresConnection::ask(const std::vector<Statement>& batch,
                                                                bool first)
{
    if (first && watchdog.fellSilent(server, connected)) connect();
    const auto started = std::chrono::steady_clock::now();
    try {
        return attempt(batch);
    } catch (const ServiceError&) {
        const bool waited = std::chrono::steady_clock::now() - started >= std::chrono::seconds(1);
        if (!first || waited || isAlive()) throw;
    }
    connect();
    return attempt(batch);
}

std::vector<PostgresConnection::Result> PostgresConnection::attempt(const std::vector<Statement>& batch)
{
    const ConnectionWatchdog::Watch watch(watchdog, socket.get(), server);
    if (!underWay.empty()) collect(); // the end of the last transaction
    for (const auto& statement : batch)
        send(statement);
    require(PQpipelineSync(connection.get()) == 1);
    return collect();
}

void PostgresConnection::send(const Statement& statement)
{
    const auto& sql = statement.sql;
    const auto& args = statement.args;
    std::vector<const char*> data;
    std::vector<int> sizes;
    std::vector<Oid> types;
    for (const auto& each : args) {
        data.push_back(each.bytes.data());
        sizes.push_back(static_cast<int>(each.bytes.size()));
        types.push_back(each.type());
    }
    const std::vector<int> binary(args.size(), 1);
    const auto count = static_cast<int>(args.size());
    auto found = statements.find(sql);
    if (found == statements.end()) {
        found = statements.emplace(sql, "s" + std::to_string(++prepared)).first;
        require(PQsendPrepare(connection.get(), found->second.c_str(), sql.c_str(), count, types.data()) ==
                1);
        underWay.push_back(sql);
    }
    require(PQsendQueryPrepared(connection.get(), found->second.c_str(), count, data.data(), sizes.data(),
                                binary.data(), 0) == 1);
    underWay.emplace_back();
}

/// Reads all answers to what is under way; returns those to statements. @throws the first failure among them
std::vector<PostgresConnection::Result> PostgresConnection::collect()
{
    std::vector<Result> answers;
    Result failed;
    for (const auto& text : std::exchange(underWay, {})) {
        bool worked = false;
        while (Result result{PQgetResult(connection.get())}) {
            const auto status = PQresultStatus(result.get());
            worked = status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK;
            if (!worked && !failed) failed = std::move(result);
            if (worked && text.empty()) answers.push_back(std::move(result));
        }
        if (!worked && !text.empty()) statements.erase(text);
    }
    const Result end{PQgetResult(connection.get())};
    const bool whole = end && PQresultStatus(end.get()) == PGRES_PIPELINE_SYNC;
    if (failed || !whole) {
        auto error = failure(failed ? failed.get() : end.get());
        refusesWrites = stateOf(failed.get()) == readOnlyState;
        if (!whole) connection.reset(); // what else comes could not be told from the answers to come
        throw error;
    }
    return answers;
}

void PostgresConnection::require(bool sent)
{
    if (sent) return;
    auto error = failure(nullptr);
    connection.reset(); // what is under way can no longer be told
    throw error;
}

bool PostgresConnection::isAlive() const
{
    return isConnected() && !refusesWrites;
}

bool PostgresConnection::isConnected() const
{
    return connection && PQstatus(connection.get()) == CONNECTION_OK;
}

ServiceError PostgresConnection::failure(const pg_result* result) const
{
    const std::string code(stateOf(result));
    const std::string said = result ? PQresultErrorMessage(result) : PQerrorMessage(connection.get());
    return sentenceFor(code, isConnected()).because("PostgreSQL " + code + ": " + said);
}

} // namespace tarnd
