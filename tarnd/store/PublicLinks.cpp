#include "tarnd/store/PublicLinks.h"

#include "tarnd/store/ReadContent.h"
#include "tarnd/store/Secrets.h"

namespace tarnd {

namespace {

constexpr std::size_t linkTokenBytes = 24;

Node linked(Transaction& transaction, const std::string& token, const ItemPath& below)
{
    const auto start = transaction.value<std::int64_t>("SELECT node FROM links WHERE token = $1", token);
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
