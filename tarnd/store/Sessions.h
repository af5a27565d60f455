#pragma once

#include "tarnd/store/Accounts.h"
#include "tarnd/store/Caller.h"
#include "tarnd/store/RecentSessions.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace tarnd {

class Transaction;

/// How many may be alive at a time.
struct SessionLimits {
    /// More than one person's devices and scripts take, few enough that a loop of logins fills no disk.
    std::uint32_t perUser = 100;
    std::uint32_t perAddress = 0; ///< 0: any number
};

/// Logins. A session id is 192 random bits as hex, stored hashed and in the database, so that several processes
/// share it; it dies after its idle life. All calls block on the database and may run on any thread.
class Sessions {
public:
    Sessions(Engine engine, Accounts& accounts, std::uint32_t idleMinutes)
        : engine(std::move(engine)), accounts(accounts), minutesIdle(idleMinutes)
    {
    }

    /// Holds from the next login on.
    void setLimits(SessionLimits most)
    {
        mostPerUser = most.perUser;
        mostPerAddress = most.perAddress;
    }

    /// Opens a session for the account the token belongs to and returns its id. One more than a user may have ends
    /// the one that was idle for the longest; one more than an address may have is refused and ends none.
    /// @param address  where it is begun from; empty: not known, and without a limit
    /// @throws ServiceError loginRequired for a token no account has, tooMany
    std::string login(const std::string& token, const std::string& address = {});

    /// The caller behind a live session, whose idle life starts anew. Writes to the database at most once a
    /// minute per session; a session therefore lives up to a minute longer than promised, never shorter.
    /// @throws ServiceError loginRequired
    Caller touch(const std::string& sessionId);

    /// The same, but a session that was alive within the last minute is taken for alive: the database is asked with the
    /// first query that the caller makes of a Tree, and that fails if it has ended. @throws as touch
    Caller expect(const std::string& sessionId);

    /// Ends the session; its open handles are aborted with it.
    void logout(const Caller& caller);

    struct Session {
        std::string id; ///< names it and opens nothing
        std::string user;
        std::int64_t used = 0; ///< milliseconds since 1970, UTC; up to a minute late
        std::string address;   ///< where it was begun from; empty: not known
    };

    /// All that are alive, by user and last use.
    std::vector<Session> list();

    /// Ends it, as its user could. @throws ServiceError badRequest
    void end(const std::string& id);

    /// Ends all of a user. @throws ServiceError badRequest
    void endAllOf(const std::string& user);

    /// How many are alive.
    std::int64_t count();

    /// What "MinutesBeforeRelogin" tells.
    std::uint32_t idleMinutes() const { return minutesIdle; }

private:
    std::int64_t life() const;
    Caller look(const std::string& key);

    Engine engine;
    Accounts& accounts;
    RecentSessions recent;
    std::uint32_t minutesIdle;
    std::atomic<std::uint32_t> mostPerUser = SessionLimits().perUser;
    std::atomic<std::uint32_t> mostPerAddress = SessionLimits().perAddress;
};

/// Keeps the session of a request that takes long from dying of idleness.
void renewSession(const Engine& engine, const Caller& caller);

/// Asks, with the next query of the transaction, whether the session lives and what its user may have.
/// @throws ServiceError loginRequired when that is answered, if it was ended
void requireSession(Transaction& transaction, const Caller& caller);

} // namespace tarnd
