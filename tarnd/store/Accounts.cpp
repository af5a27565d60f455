#include "tarnd/store/Accounts.h"

#include "tarnd/store/ContentFolder.h"
#include "tarnd/store/Secrets.h"
#include "tarnd/store/Tree.h"

namespace tarnd {

namespace {

constexpr std::size_t tokenBytes = 32;

constexpr auto accountColumns = columns(
    column("id", &Account::id), column("name", &Account::name), column("created", &Account::created),
    column("disabled", &Account::disabled), column("quota", &Account::quota), column("used", &Account::used));

std::int64_t idOf(Transaction& transaction, const std::string& name)
{
    const auto id = transaction.value<std::int64_t>("SELECT id FROM users WHERE name = $1", name);
    if (!id) throw sentences::unknownUser(name);
    return *id;
}

} // namespace

/// The command line writes "alice:/docs", so ':' must not be part of a name.
void requireUserName(const std::string& name)
{
    auto why = whyNameIsBad(name);
    if (why.empty() && name.find(':') != std::string::npos) why = "a name holds a ':'.";
    if (!why.empty()) throw sentences::badUserName(why);
}

/// Only a digest is kept. Without a salt, which a secret of 256 random bits does not need, a token is found by it.
std::string Accounts::add(const std::string& name)
{
    requireUserName(name);
    const auto token = randomHex(tokenBytes);
    engine.database.write([&](Transaction& transaction) {
        if (transaction.value<std::int64_t>("SELECT id FROM users WHERE name = $1", name))
            throw sentences::userExists(name);
        const auto now = engine.clock();
        const auto id = transaction.value<std::int64_t>(
            "INSERT INTO users (name, token, created) VALUES ($1, $2, $3) RETURNING id", name,
            sha256Hex(token), now);
        transaction.run(
            "INSERT INTO nodes (owner, name, kind, created, modified) VALUES ($1, '', $2, $3, $4)",
            id.value(), ItemKind::folder, now, now);
    });
    return token;
}

std::vector<Account> Accounts::list()
{
    return engine.database.read([](Transaction& transaction) {
        return transaction.records(accountColumns, "FROM users ORDER BY name");
    });
}

std::string Accounts::rotate(const std::string& name)
{
    const auto token = randomHex(tokenBytes);
    engine.database.writeAlsoWhenFull([&](Transaction& transaction) {
        const auto id = idOf(transaction, name);
        transaction.run("UPDATE users SET token = $1 WHERE id = $2", sha256Hex(token), id);
        transaction.run("DELETE FROM sessions WHERE account = $1", id);
    });
    return token;
}

void Accounts::setDisabled(const std::string& name, bool disabled)
{
    engine.database.writeAlsoWhenFull([&](Transaction& transaction) {
        const auto id = idOf(transaction, name);
        transaction.run("UPDATE users SET disabled = $1 WHERE id = $2", std::int64_t{disabled}, id);
        if (disabled) transaction.run("DELETE FROM sessions WHERE account = $1", id);
    });
}

void Accounts::setQuota(const std::string& name, std::int64_t bytes)
{
    engine.database.writeAlsoWhenFull([&](Transaction& transaction) {
        transaction.run("UPDATE users SET quota = $1 WHERE id = $2", bytes, idOf(transaction, name));
    });
}

void Accounts::remove(const std::string& name, bool force)
{
    const auto dropped = engine.database.writeAlsoWhenFull([&](Transaction& transaction) {
        const auto id = idOf(transaction, name);
        const auto root = rootOf(transaction, id);
        if (!force && hasChildren(transaction, root.id)) throw sentences::userOwnsData(name);
        auto contents = removeTree(transaction, root.id);
        // Grants name their subject by text: a later user of this name must not come into these.
        transaction.run("DELETE FROM grants WHERE subject = $1", name);
        transaction.run("DELETE FROM users WHERE id = $1", id);
        return contents;
    });
    engine.contents.drop(dropped);
}

Account Accounts::authenticate(const std::string& token)
{
    const auto digest = sha256Hex(token);
    return engine.database.read([&](Transaction& transaction) {
        const auto stored =
            transaction.value<std::string>("SELECT token FROM users WHERE token = $1", digest);
        // The index compares digests, which say nothing of how near a guessed token came; this is the last look.
        if (!stored || !equalInConstantTime(*stored, digest)) throw sentences::badToken();
        auto account = transaction.record(accountColumns, "FROM users WHERE token = $1", digest).value();
        if (account.disabled) throw sentences::accountDisabled();
        return account;
    });
}

} // namespace tarnd
