#include "tarnd/store/Database.h"

#include "tarnd/store/Dialect.h"

namespace tarnd {

void Transaction::execute(Poco::Data::Statement& statement)
{
    try {
        statement.execute();
    } catch (const Poco::Exception& error) {
        throw dialect_.translated(error);
    }
}

Database::Database(std::unique_ptr<Dialect> dialect) : dialect_(std::move(dialect)) {}

/// Readers go first: the writer is the last connection to close, and it is the one that may checkpoint.
Database::~Database()
{
    idleReaders_.clear();
    writer_.reset();
}

std::vector<std::string> Database::selfCheck()
{
    try {
        auto session = dialect_->open(false);
        return dialect_->selfCheck(session);
    } catch (const Poco::Exception& error) {
        return {error.displayText()};
    }
}

std::optional<Poco::Data::Session> Database::takeIdle(bool writing)
{
    if (writing) return std::exchange(writer_, std::nullopt);
    const std::lock_guard lock(idleMutex_);
    if (idleReaders_.empty()) return std::nullopt;
    auto session = std::move(idleReaders_.back());
    idleReaders_.pop_back();
    return session;
}

void Database::giveBack(Poco::Data::Session session, bool writing)
{
    if (writing) {
        writer_ = std::move(session);
        return;
    }
    const std::lock_guard lock(idleMutex_);
    idleReaders_.push_back(std::move(session));
}

Database::Lease::Lease(Database& database, bool writing)
    : database_(database)
    , writing_(writing)
    , turn_(writing ? std::unique_lock(database.writing_) : std::unique_lock<std::mutex>())
{
    auto& dialect = *database_.dialect_;
    try {
        session_ = database_.takeIdle(writing_);
        if (session_) {
            try {
                dialect.begin(*session_, writing_);
            } catch (const Poco::Exception&) {
                if (dialect.isAlive(*session_)) throw;
                session_.reset(); // the server restarted since this connection was last used
            }
        }
        if (!session_) {
            session_ = dialect.open(writing_);
            dialect.begin(*session_, writing_);
        }
    } catch (const Poco::Exception& error) {
        throw dialect.translated(error);
    }
    transaction_.emplace(*session_, dialect);
}

Database::Lease::~Lease()
{
    transaction_.reset();
    try {
        auto& dialect = *database_.dialect_;
        if (!ended_) dialect.rollback(*session_);
        if (dialect.isAlive(*session_)) database_.giveBack(std::move(*session_), writing_);
    } catch (const std::exception&) { // a connection that cannot roll back is closed, which does
    }
}

void Database::Lease::commit()
{
    auto& dialect = *database_.dialect_;
    try {
        dialect.commit(*session_);
        ended_ = true;
    } catch (const Poco::Exception& error) {
        if (dialect.isAlive(*session_)) throw dialect.translated(error);
        throw CommitUnknown(ServiceError::Kind::internal, sentences::internal("").what(),
                            error.displayText());
    }
}

} // namespace tarnd
