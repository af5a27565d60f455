#include "tarnd/store/Database.h"

#include "tarnd/store/Dialect.h"

namespace tarnd {

namespace {

/// A request that cannot have its turn is told so while its client still listens.
constexpr std::chrono::seconds turnLimit{10};

} // namespace

void Transaction::execute(Poco::Data::Statement& statement)
{
    try {
        dialect.execute(session, statement);
    } catch (const Poco::Exception& error) {
        throw dialect.translated(error, dialect.isAlive(session));
    }
}

Database::Database(std::unique_ptr<Dialect> dialect, std::size_t readers)
    : ownDialect(std::move(dialect)), writerGate(1), readerGate(readers)
{
}

/// Readers go first: the writer is the last connection to close, and it is the one that may checkpoint.
Database::~Database()
{
    idleReaders.clear();
    writer.reset();
}

std::vector<std::string> Database::selfCheck()
{
    try {
        auto session = ownDialect->open(false);
        return ownDialect->selfCheck(session);
    } catch (const Poco::Exception& error) {
        return {dialect().translated(error, false).what()};
    }
}

void Database::interruptWaits()
{
    readerGate.turnAway();
    writerGate.turnAway();
    ownDialect->interruptWaits();
}

std::optional<Poco::Data::Session> Database::takeIdle(bool writing)
{
    if (writing) return std::exchange(writer, std::nullopt);
    const std::lock_guard lock(idleMutex);
    if (idleReaders.empty()) return std::nullopt;
    auto session = std::move(idleReaders.back());
    idleReaders.pop_back();
    return session;
}

void Database::giveBack(Poco::Data::Session session, bool writing)
{
    if (writing) {
        writer = std::move(session);
        return;
    }
    const std::lock_guard lock(idleMutex);
    idleReaders.push_back(std::move(session));
}

Database::Turn::Turn(Gate& gate) : gate(gate)
{
    if (!gate.enter(turnLimit)) throw sentences::busy();
}

Database::Lease::Lease(Database& database, bool writing)
    : database(database), writing(writing), turn(writing ? database.writerGate : database.readerGate)
{
    begin();
    opened.emplace(*session, *database.ownDialect);
}

Database::Lease::~Lease()
{
    opened.reset();
    if (session) giveBack();
}

void Database::Lease::begin()
{
    auto& dialect = *database.ownDialect;
    const auto started = std::chrono::steady_clock::now();
    try {
        session = database.takeIdle(writing);
        if (session) {
            try {
                return dialect.begin(*session, writing);
            } catch (const Poco::Exception&) {
                // A restart of the server since the last use shows at once; what was waited for and then cut off
                // would be waited for again.
                const bool waited = std::chrono::steady_clock::now() - started >= std::chrono::seconds(1);
                if (waited || dialect.isAlive(*session)) throw;
                session.reset();
            }
        }
        session = dialect.open(writing);
        dialect.begin(*session, writing);
    } catch (const Poco::Exception& error) {
        const bool alive = session && dialect.isAlive(*session);
        if (alive) giveBack(); // the lock was not to be had: the next one need not connect again
        throw dialect.translated(error, alive);
    }
}

void Database::Lease::giveBack() noexcept
{
    try {
        auto& dialect = *database.ownDialect;
        if (!ended) dialect.rollback(*session);
        if (dialect.isAlive(*session)) database.giveBack(std::move(*session), writing);
    } catch (const std::exception&) { // a connection that cannot roll back is closed, which does
    }
}

void Database::Lease::commit()
{
    auto& dialect = *database.ownDialect;
    try {
        dialect.commit(*session);
        ended = true;
    } catch (const Poco::Exception& error) {
        const bool alive = dialect.isAlive(*session);
        const auto failure = dialect.translated(error, alive);
        // Full is certain: the engine could not write the end of the commit.
        const bool full = alive && failure.kind() == ServiceError::Kind::insufficientStorage;
        if (full || !dialect.mayHaveCommitted(*session)) throw failure;
        // What this connection takes for its state may not be what the disk holds: the next one looks for itself.
        opened.reset();
        session.reset();
        throw CommitUnknown(sentences::commitUnknown.because(failure.detail()));
    }
}

} // namespace tarnd
