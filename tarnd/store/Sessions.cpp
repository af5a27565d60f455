#include "tarnd/store/Sessions.h"

#include "tarnd/store/Database.h"
#include "tarnd/store/Secrets.h"

namespace tarnd {

namespace {

constexpr std::size_t sessionIdBytes = 24;
constexpr std::int64_t minute = 60 * 1000;

/// The stored time of the last use may lag by this much, which spares a write per request.
constexpr std::int64_t touchInterval = minute;

void refuseBeyond(std::uint32_t most, Transaction& transaction, const std::string& address)
{
    const auto count =
        transaction.value<std::int64_t>("SELECT COUNT(*) FROM sessions WHERE address = $1", address);
    if (count.value() > most) throw sentences::tooManySessions(std::to_string(most));
}

} // namespace

std::string Sessions::login(const std::string& token, const std::string& address)
{
    const auto account = accounts.authenticate(token);
    const auto id = randomHex(sessionIdBytes);
    const std::uint32_t perUser = mostPerUser, perAddress = mostPerAddress;
    engine.database.writeAlsoWhenFull([&](Transaction& transaction) {
        const auto now = engine.clock();
        transaction.run("DELETE FROM sessions WHERE used < $1", now - life());
        // Before the new one is there, which must stay, whatever the clock says of the others.
        transaction.run(
            R"(DELETE FROM sessions WHERE account = $1 AND id NOT IN (
                   SELECT id FROM sessions WHERE account = $2 ORDER BY used DESC, id LIMIT $3))",
            account.id, account.id, perUser - 1);
        // Rotated or removed meanwhile: then the token is no longer anybody's.
        const auto inserted = transaction.value<std::int64_t>(
            R"(INSERT INTO sessions (id, account, used, address)
               SELECT $1, id, $2, NULLIF($3, '') FROM users WHERE id = $4 AND token = $5 AND disabled = 0
               RETURNING account)",
            sha256Hex(id), now, address, account.id, sha256Hex(token));
        if (!inserted) throw sentences::badToken();
        if (perAddress > 0) refuseBeyond(perAddress, transaction, address);
    });
    return id;
}

Caller Sessions::touch(const std::string& sessionId)
{
    return look(sha256Hex(sessionId));
}

Caller Sessions::expect(const std::string& sessionId)
{
    const auto key = sha256Hex(sessionId);
    // Within that time neither is it too old nor is its use to be written down.
    const auto now = engine.clock();
    auto known = recent.find(key, now - touchInterval, now);
    return known ? std::move(*known) : look(key);
}

Caller Sessions::look(const std::string& key)
{
    const auto now = engine.clock();
    const auto found = engine.database.lookUp([&](Transaction& transaction) {
        return transaction.row<std::int64_t, std::string, std::int64_t, std::int64_t>(
            "SELECT u.id, u.name, s.used, u.quota FROM sessions s JOIN users u ON u.id = s.account WHERE "
            "s.id = $1",
            key);
    });
    if (!found || std::get<2>(*found) < now - life()) {
        recent.forget(key);
        throw sentences::sessionEnded();
    }
    Caller caller{std::get<0>(*found), std::get<1>(*found), key, std::get<3>(*found) > 0};
    auto used = std::get<2>(*found);
    // Later than now was told by a clock that has been set right since: kept, it would keep the session for ever.
    if (used <= now - touchInterval || used > now) {
        renewSession(engine, caller);
        used = now;
    }
    recent.remember(caller, used);
    return caller;
}

void Sessions::logout(const Caller& caller)
{
    engine.database.writeAlsoWhenFull(WriteScope{caller.userId}, [&](Transaction& transaction) {
        transaction.run("DELETE FROM sessions WHERE id = $1", caller.sessionKey);
    });
}

std::vector<Sessions::Session> Sessions::list()
{
    constexpr auto shown =
        columns(column("SUBSTR(s.id, 1, 12)", &Session::id), column("u.name", &Session::user),
                column("s.used", &Session::used), column("COALESCE(s.address, '')", &Session::address));
    return engine.database.read([&](Transaction& transaction) {
        return transaction.records(shown, R"(FROM sessions s JOIN users u ON u.id = s.account
            WHERE s.used >= $1 ORDER BY u.name, s.used DESC)",
                                   engine.clock() - life());
    });
}

void Sessions::end(const std::string& id)
{
    engine.database.writeAlsoWhenFull([&](Transaction& transaction) {
        if (!transaction.value<std::string>("DELETE FROM sessions WHERE SUBSTR(id, 1, 12) = $1 RETURNING id",
                                            id))
            throw sentences::unknownSession(id);
    });
}

void Sessions::endAllOf(const std::string& user)
{
    engine.database.writeAlsoWhenFull([&](Transaction& transaction) {
        const auto account = transaction.value<std::int64_t>("SELECT id FROM users WHERE name = $1", user);
        if (!account) throw sentences::unknownUser(user);
        transaction.run("DELETE FROM sessions WHERE account = $1", *account);
    });
}

std::int64_t Sessions::count()
{
    return engine.database.lookUp([&](Transaction& transaction) {
        return transaction
            .value<std::int64_t>("SELECT COUNT(*) FROM sessions WHERE used >= $1", engine.clock() - life())
            .value();
    });
}

std::int64_t Sessions::life() const
{
    return minutesIdle * minute + touchInterval;
}

void renewSession(const Engine& engine, const Caller& caller)
{
    engine.database.writeAlsoWhenFull(WriteScope{caller.userId}, [&](Transaction& transaction) {
        transaction.run("UPDATE sessions SET used = $1 WHERE id = $2", engine.clock(), caller.sessionKey);
    });
}

void requireSession(Transaction& transaction, const Caller& caller)
{
    transaction.ahead(
        "SELECT u.quota FROM sessions s JOIN users u ON u.id = s.account WHERE s.id = $1",
        [&caller](const SqlRow* row) {
            if (!row) throw sentences::sessionEnded();
            caller.hasQuota = row->number(0) > 0;
            caller.isAssumed = false;
        },
        caller.sessionKey);
}

} // namespace tarnd
