#include "tarnd/store/Database.h"

#include "tarnd/store/Dialect.h"

namespace tarnd {

namespace {

/// A request that cannot have its turn is told so while its client still listens.
constexpr std::chrono::seconds turnLimit{10};

/// More than ever wait together, few enough that the first does not wait long for the last.
constexpr std::size_t writesPerCommit = 64;

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
        faults.push_back("The database is damaged: " + error.detail());
    }
    return faults;
}

void Database::requireFiles()
{
    ownDialect->requireFiles();
}

Gate::Use Database::writerUse()
{
    auto use = writers.gate.use();
    use.waiting += queue.waitingNow();
    return use;
}

void Database::interruptWaits()
{
    readers.gate.turnAway();
    writers.gate.turnAway();
    queue.turnAway();
    ownDialect->interruptWaits();
}

void Database::runWrite(const WriteQueue::Work& work, const WriteScope& scope)
{
    if (ownDialect->hasManyWriters()) {
        Lease lease(*this, Lease::Mode::write, scope);
        work(lease.transaction());
        lease.commit();
        return;
    }
    WriteQueue::Entry own(work);
    if (queue.enter(own, turnLimit)) lead(own);
    if (own.failure) std::rethrow_exception(own.failure);
}

/// Nobody is told before the commit that covers him: those who joined wake in finish(). The leader's own write needs
/// no savepoint: when it fails there is nothing yet that must outlast it, and nobody joins.
void Database::lead(WriteQueue::Entry& own)
{
    std::vector<WriteQueue::Entry*> joined;
    try {
        joined.reserve(writesPerCommit); // whoever has joined must not be lost for want of memory
        Lease lease(*this, Lease::Mode::write);
        own.work(lease.transaction());
        while (joined.size() < writesPerCommit) {
            auto* const part = queue.join();
            if (!part) break;
            joined.push_back(part);
            lease.runPart(*part);
        }
        lease.commit();
    } catch (...) {
        own.failure = std::current_exception();
        for (auto* part : joined)
            if (!part->failure) part->failure = std::current_exception();
    }
    queue.finish(joined);
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
        if (mode == Mode::lookUp)
            connection->dropWaiting();
        else if (!ended)
            connection->rollback();
        const std::lock_guard lock(pool.mutex);
        if (connection->isAlive()) pool.idle.push_back(std::move(connection));
    } catch (const std::exception&) { // a connection that cannot roll back is closed, which does
    }
}

/// A further write of this transaction. When it fails only its own changes go, unless the engine has undone
/// everything: then the failure is everybody's.
void Database::Lease::runPart(WriteQueue::Entry& part)
{
    opened->run("SAVEPOINT part");
    try {
        part.work(*opened);
    } catch (...) {
        part.failure = std::current_exception();
        if (!connection->isInTransaction()) throw;
        opened->run("ROLLBACK TO part");
    }
    opened->run("RELEASE part");
}

void Database::Lease::commit()
{
    try {
        const Stopwatch watch(database.commitTimes);
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
