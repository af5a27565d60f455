#include "tarnd/store/Database.h"

#include "tarnd/store/Dialect.h"

namespace tarnd {

namespace {

/// A request that cannot have its turn is told so while its client still listens.
constexpr std::chrono::seconds turnLimit{10};

} // namespace

Database::Database(std::unique_ptr<Dialect> dialect, std::size_t readers)
    : ownDialect(std::move(dialect)), writers(ownDialect->hasManyWriters() ? readers : 1), readers(readers)
{
}

/// Readers go first: the writer is the last connection to close, and it is the one that may checkpoint.
Database::~Database()
{
    readers.idle.clear();
    writers.idle.clear();
}

std::vector<std::string> Database::selfCheck()
{
    const auto query = ownDialect->selfCheck();
    std::vector<std::string> faults;
    if (query.empty()) return faults;
    try {
        lookUp([&](Transaction& transaction) {
            for (auto& [fault] : transaction.rows<std::string>(query))
                faults.push_back(std::move(fault));
        });
    } catch (const ServiceError& error) {
        faults.emplace_back(error.what());
    }
    return faults;
}

void Database::interruptWaits()
{
    readers.gate.turnAway();
    writers.gate.turnAway();
    ownDialect->interruptWaits();
}

Database::Turn::Turn(Gate& gate) : gate(gate)
{
    if (!gate.enter(turnLimit)) throw sentences::busy();
}

Database::Lease::Lease(Database& database, Mode mode, const WriteScope& scope)
    : database(database)
    , mode(mode)
    , pool(mode == Mode::write ? database.writers : database.readers)
    , turn(pool.gate)
{
    begin(scope);
    opened.emplace(*connection);
}

Database::Lease::~Lease()
{
    if (connection) giveBack();
}

void Database::Lease::begin(const WriteScope& scope)
{
    {
        const std::lock_guard lock(pool.mutex);
        if (!pool.idle.empty()) {
            connection = std::move(pool.idle.back());
            pool.idle.pop_back();
        }
    }
    if (!connection) connection = database.ownDialect->open(mode == Mode::write);
    try {
        if (mode == Mode::read) connection->beginRead();
        if (mode == Mode::write) connection->beginWrite(scope);
    } catch (const ServiceError&) {
        ended = true; // the lock was not to be had: the next one need not connect again
        giveBack();
        throw;
    }
}

void Database::Lease::giveBack() noexcept
{
    try {
        if (!ended && mode != Mode::lookUp) connection->rollback();
        const std::lock_guard lock(pool.mutex);
        if (connection->isAlive()) pool.idle.push_back(std::move(connection));
    } catch (const std::exception&) { // a connection that cannot roll back is closed, which does
    }
}

void Database::Lease::commit()
{
    try {
        connection->commit();
        ended = true;
    } catch (const ServiceError& failure) {
        // Full is certain: the engine could not write the end of the commit.
        const bool full = connection->isAlive() && failure.kind() == ServiceError::Kind::insufficientStorage;
        if (full || !connection->mayHaveCommitted()) throw;
        // What this connection takes for its state may not be what the disk holds: the next one looks for itself.
        connection.reset();
        throw CommitUnknown(sentences::commitUnknown.because(failure.detail()));
    }
}

} // namespace tarnd
