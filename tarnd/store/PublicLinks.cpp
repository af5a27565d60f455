#include "tarnd/store/PublicLinks.h"

#include "tarnd/store/ReadContent.h"
#include "tarnd/store/Secrets.h"

namespace tarnd {

namespace {

constexpr std::size_t linkTokenBytes = 24;

/// The link itself must not be seen over a shoulder.
std::string idOf(const std::string& token)
{
    constexpr std::size_t digits = 12;
    return sha256Hex(token).substr(0, digits);
}

Node linked(Transaction& transaction, const std::string& token, const ItemPath& below)
{
    const auto start = transaction.value<std::int64_t>(
        R"(SELECT n.id FROM links l JOIN nodes n ON n.id = l.node JOIN users u ON u.id = n.owner
           WHERE l.token = $1 AND u.disabled = 0)",
        token);
    const auto node = start ? nodeBelow(transaction, *start, below) : std::nullopt;
    if (!node) throw sentences::notFound();
    return *node;
}

} // namespace

std::string PublicLinks::get(const Caller& caller, const Location& location)
{
    return engine.database.write(WriteScope{caller.userId}, [&](Transaction& transaction) {
        const auto node = Tree(transaction, caller).owned(location);
        const auto existing =
            transaction.value<std::string>("SELECT token FROM links WHERE node = $1", node.id);
        if (existing) return *existing;
        const auto token = randomHex(linkTokenBytes);
        transaction.run("INSERT INTO links (token, node) VALUES ($1, $2)", token, node.id);
        return token;
    });
}

std::vector<PublicLink> PublicLinks::list()
{
    return engine.database.read([](Transaction& transaction) {
        const auto paths = pathsOf(transaction, "SELECT node FROM links");
        std::vector<PublicLink> links;
        for (const auto& [token, node, owner] : transaction.rows<std::string, std::int64_t, std::string>(
                 R"(SELECT l.token, n.id, u.name FROM links l
                    JOIN nodes n ON n.id = l.node JOIN users u ON u.id = n.owner ORDER BY u.name, n.id)"))
            links.push_back({idOf(token), owner, paths.at(node)});
        return links;
    });
}

void PublicLinks::revoke(const std::string& id)
{
    engine.database.writeAlsoWhenFull([&](Transaction& transaction) {
        for (const auto& [token] : transaction.rows<std::string>("SELECT token FROM links"))
            if (idOf(token) == id) return transaction.run("DELETE FROM links WHERE token = $1", token);
        throw sentences::unknownLink(id);
    });
}

std::variant<OpenContent, Listing> PublicLinks::open(const std::string& token, const ItemPath& below)
{
    const auto listing = engine.database.read([&](Transaction& transaction) {
        const auto node = linked(transaction, token, below);
        return node.isFolder() ? std::optional(listingOf(transaction, node, false)) : std::nullopt;
    });
    if (listing) return *listing;
    return readContent(engine, Database::Statements::several, [&](Transaction& transaction) {
        const auto file = requireFile(linked(transaction, token, below));
        return FoundContent(file, itemOf(file, false), chosenVersion(transaction, file, {}));
    });
}

} // namespace tarnd
