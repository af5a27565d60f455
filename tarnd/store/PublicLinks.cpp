#include "tarnd/store/PublicLinks.h"

#include "tarnd/store/ReadContent.h"
#include "tarnd/store/Secrets.h"
#include "tarnd/store/TimeText.h"

namespace tarnd {

namespace {

constexpr std::size_t linkTokenBytes = 24;

Node linked(Transaction& transaction, const std::string& token, const ItemPath& below, std::int64_t now)
{
    const auto start = transaction.value<std::int64_t>(
        R"(SELECT n.id FROM links l JOIN nodes n ON n.id = l.node JOIN users u ON u.id = n.owner
           WHERE l.token = $1 AND (l.expires = 0 OR l.expires > $2) AND u.disabled = 0)",
        token, now);
    const auto node = start ? nodeBelow(transaction, *start, below) : std::nullopt;
    if (!node) throw sentences::notFound();
    return *node;
}

/// The live links for which `condition` (about what follows $1) holds.
template <class... Args>
std::vector<PublicLink> linksWhere(Transaction& transaction, std::int64_t now, const std::string& condition,
                                   const Args&... args)
{
    const std::string live =
        R"( FROM links l JOIN nodes n ON n.id = l.node JOIN users u ON u.id = n.owner
            WHERE (l.expires = 0 OR l.expires > $1) AND )" +
        condition;
    const auto paths = pathsOf(transaction, "SELECT l.node" + live, now, args...);
    std::vector<PublicLink> links;
    for (auto& [token, node, owner, kind, expires] :
         transaction.rows<std::string, std::int64_t, std::string, std::int64_t, std::int64_t>(
             "SELECT l.token, n.id, u.name, n.kind, l.expires" + live + " ORDER BY u.name, n.id, l.expires",
             now, args...))
        links.push_back({PublicLinks::idOf(token), owner, paths.at(node), ItemKind{kind}, expires, token});
    return links;
}

void revokeAmong(Transaction& transaction, const std::vector<PublicLink>& links, const std::string& id)
{
    for (const auto& link : links)
        if (link.id == id) return transaction.run("DELETE FROM links WHERE token = $1", link.token);
    throw sentences::unknownLink(id);
}

} // namespace

/// The link itself must not be seen over a shoulder.
std::string PublicLinks::idOf(const std::string& token)
{
    constexpr std::size_t digits = 12;
    return sha256Hex(token).substr(0, digits);
}

std::string PublicLinks::get(const Caller& caller, const Location& location, std::int64_t expires)
{
    return engine.database.write(WriteScope{caller.userId}, [&](Transaction& transaction) {
        const auto node = Tree(transaction, caller).owned(location);
        const auto now = engine.clock();
        if (expires != 0 && expires <= now) throw sentences::linkOver(timeText(now));
        const auto existing = transaction.value<std::string>(
            "SELECT token FROM links WHERE node = $1 AND expires = $2", node.id, expires);
        if (existing) return *existing;
        // Those that have ended open nothing: they go when there is something to write anyway.
        transaction.run(R"(DELETE FROM links WHERE expires <> 0 AND expires <= $1
                           AND node IN (SELECT id FROM nodes WHERE owner = $2))",
                        now, caller.userId);
        const auto token = randomHex(linkTokenBytes);
        transaction.run("INSERT INTO links (token, node, expires) VALUES ($1, $2, $3)", token, node.id,
                        expires);
        return token;
    });
}

std::vector<PublicLink> PublicLinks::list()
{
    return engine.database.read(
        [&](Transaction& transaction) { return linksWhere(transaction, engine.clock(), "n.id > 0"); });
}

std::vector<PublicLink> PublicLinks::list(const Caller& caller)
{
    return engine.database.read([&](Transaction& transaction) {
        return linksWhere(transaction, engine.clock(), "n.owner = $2", caller.userId);
    });
}

void PublicLinks::revoke(const std::string& id)
{
    engine.database.writeAlsoWhenFull([&](Transaction& transaction) {
        revokeAmong(transaction, linksWhere(transaction, engine.clock(), "n.id > 0"), id);
    });
}

void PublicLinks::revoke(const Caller& caller, const std::string& id)
{
    engine.database.writeAlsoWhenFull(WriteScope{caller.userId}, [&](Transaction& transaction) {
        revokeAmong(transaction, linksWhere(transaction, engine.clock(), "n.owner = $2", caller.userId), id);
    });
}

std::variant<OpenContent, Listing> PublicLinks::open(const std::string& token, const ItemPath& below)
{
    const auto listing = engine.database.read([&](Transaction& transaction) {
        const auto node = linked(transaction, token, below, engine.clock());
        return node.isFolder() ? std::optional(listingOf(transaction, node, false)) : std::nullopt;
    });
    if (listing) return *listing;
    return readContent(engine, Database::Statements::several, [&](Transaction& transaction) {
        const auto file = requireFile(linked(transaction, token, below, engine.clock()));
        return FoundContent(file, itemOf(file, false), chosenVersion(transaction, file, {}));
    });
}

} // namespace tarnd
