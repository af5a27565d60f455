#include "tarnd/store/Tree.h"

#include <Poco/String.h>

#include <algorithm>
#include <span>

namespace tarnd {

namespace {

/// How many names one query follows: each is a subquery, and the engines limit how deep these nest.
constexpr std::size_t namesPerQuery = 8;

const std::string below = R"(
    WITH RECURSIVE below(id) AS (
        SELECT id FROM nodes WHERE id = $1
        UNION ALL
        SELECT n.id FROM nodes n JOIN below b ON n.parent = b.id)
    )";

const std::string upwards = R"(
    WITH RECURSIVE up(id, parent) AS (
        SELECT id, parent FROM nodes WHERE id = $1
        UNION ALL
        SELECT n.id, n.parent FROM nodes n JOIN up ON n.id = up.parent)
    )";

constexpr auto nodeColumns =
    columns(column("n.id", &Node::id),                                       //
            column("COALESCE(n.parent, 0)", &Node::parent),                  //
            column("n.owner", &Node::owner),                                 //
            column("n.kind", &Node::kind),                                   //
            column("n.name", &Node::name),                                   //
            column("n.created", &Node::created),                             //
            column("n.modified", &Node::modified),                           //
            column("n.revision", &Node::revision),                           //
            column("COALESCE(v.id, '')", &Node::version, &VersionStamp::id), //
            column("COALESCE(v.label, 0)", &Node::version, &VersionStamp::label),
            column("COALESCE(v.size, 0)", &Node::size), column("COALESCE(v.sha256, '')", &Node::sha256),
            column("COALESCE(v.content, '')", &Node::content));

const std::string nodesWhere = "FROM nodes n LEFT JOIN versions v ON v.id = n.current WHERE ";

template <class... Args>
std::vector<Node> nodes(Transaction& transaction, const std::string& condition, const Args&... args)
{
    return transaction.records(nodeColumns, nodesWhere + condition, args...);
}

template <class... Args>
std::optional<Node> node(Transaction& transaction, const std::string& condition, const Args&... args)
{
    return transaction.record(nodeColumns, nodesWhere + condition, args...);
}

/// "n.name = $1 AND n.parent = (SELECT … name = $2 AND parent = (… $last))": the last name first.
std::string followCondition(std::size_t names)
{
    std::string condition = "n.name = $1 AND n.parent = ";
    for (std::size_t i = 2; i <= names; ++i)
        condition += "(SELECT id FROM nodes WHERE name = $" + std::to_string(i) + " AND parent = ";
    condition += "$" + std::to_string(names + 1);
    return condition.append(names - 1, ')');
}

std::optional<Node> follow(Transaction& transaction, std::int64_t start, std::span<const std::string> names)
{
    const auto count = std::min(names.size(), namesPerQuery);
    std::vector<std::string> args(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(count));
    std::reverse(args.begin(), args.end());
    auto reached = node(transaction, followCondition(count), args, start);
    if (!reached || count == names.size()) return reached;
    return follow(transaction, reached->id, names.subspan(count));
}

} // namespace

std::optional<Node> nodeById(Transaction& transaction, std::int64_t id)
{
    return node(transaction, "n.id = $1", id);
}

std::optional<Node> nodeBelow(Transaction& transaction, std::int64_t start, const ItemPath& path)
{
    return path.isRoot() ? nodeById(transaction, start) : follow(transaction, start, path.names());
}

Node rootOf(Transaction& transaction, std::int64_t userId)
{
    auto root = node(transaction, "n.parent IS NULL AND n.owner = $1", userId);
    if (!root) throw sentences::sessionEnded(); // the user was removed after the session was looked up
    return *root;
}

std::vector<Node> childrenOf(Transaction& transaction, std::int64_t folder)
{
    return nodes(transaction, "n.parent = $1 ORDER BY n.name", folder);
}

std::vector<Node> nodesIn(Transaction& transaction, const std::string& ids, const std::string& text)
{
    return nodes(transaction, "n.id IN (" + ids + ")", text);
}

/// Looked for from the node upwards: that passes a few ancestors, where downwards would pass the whole tree.
bool isWithin(Transaction& transaction, std::int64_t node, std::int64_t folder)
{
    return transaction.value<std::int64_t>(upwards + "SELECT 1 FROM up WHERE id = $2 LIMIT 1", node, folder)
        .has_value();
}

bool hasChildren(Transaction& transaction, std::int64_t folder)
{
    return transaction.value<std::int64_t>("SELECT 1 FROM nodes WHERE parent = $1 LIMIT 1", folder)
        .has_value();
}

Node requireFile(Node node)
{
    if (node.isFolder()) throw sentences::isFolder();
    return node;
}

Node requireFolder(Node node)
{
    if (!node.isFolder()) throw sentences::isFile();
    return node;
}

Item itemOf(const Node& node, bool writable)
{
    return {node.kind,
            node.parent ? node.name : "/",
            node.created,
            node.modified,
            node.size,
            writable,
            std::to_string(node.id) + "-" + std::to_string(node.revision)};
}

Listing listingOf(Transaction& transaction, const Node& folder, bool writable)
{
    Listing listing{itemOf(folder, writable), {}, {}};
    for (const auto& child : childrenOf(transaction, folder.id))
        (child.isFolder() ? listing.folders : listing.files).push_back(itemOf(child, writable));
    return listing;
}

std::int64_t insertNode(Transaction& transaction, const Slot& slot, ItemKind kind, std::int64_t now)
{
    const auto id = transaction.value<std::int64_t>(
        R"(INSERT INTO nodes (owner, parent, name, kind, created, modified)
           VALUES ($1, $2, $3, $4, $5, $6) RETURNING id)",
        slot.owner, slot.parent, slot.name, kind, now, now);
    entriesChanged(transaction, slot.parent, now);
    return id.value();
}

void entriesChanged(Transaction& transaction, std::int64_t folder, std::int64_t now)
{
    transaction.run("UPDATE nodes SET modified = $1, revision = revision + 1 WHERE id = $2", now, folder);
}

std::vector<std::string> removeTree(Transaction& transaction, std::int64_t node)
{
    // Before the rows go: the contents are what the caller drops after the commit. Versions, grants and links go
    // with the nodes, by their foreign keys.
    std::vector<std::string> contents;
    for (auto& [content] : transaction.rows<std::string>(
             below + "SELECT DISTINCT v.content FROM versions v JOIN below b ON v.node = b.id", node))
        contents.push_back(std::move(content));
    transaction.run("DELETE FROM nodes WHERE id IN (" + below + "SELECT id FROM below)", node);
    return contents;
}

std::string pathsQuery(const std::string& nodes)
{
    return Poco::replace(std::string(R"(
        WITH RECURSIVE up(start, parent, path) AS (
            SELECT id, parent, name FROM nodes WHERE id IN ({nodes})
            UNION ALL
            SELECT up.start, p.parent, p.name || '/' || up.path FROM up JOIN nodes p ON p.id = up.parent)
        SELECT start, path FROM up WHERE parent IS NULL)"),
                         "{nodes}", nodes.c_str());
}

/// Finds what is there whoever asks; only findReadable() may show it.
std::optional<Node> Tree::find(const Location& location)
{
    auto owner = caller.userId;
    if (!location.bucket.empty() && location.bucket != caller.user) {
        const auto other =
            transaction.value<std::int64_t>("SELECT id FROM users WHERE name = $1", location.bucket);
        if (!other) return std::nullopt;
        owner = *other;
    }
    const auto root = rootOf(transaction, owner);
    return location.path.isRoot() ? root : nodeBelow(transaction, root.id, location.path);
}

bool Tree::isGranted(const Node& node)
{
    const auto grant =
        upwards + "SELECT 1 FROM up JOIN grants g ON g.node = up.id WHERE g.subject = $2 LIMIT 1";
    return transaction.value<std::int64_t>(grant, node.id, caller.user).has_value();
}

std::optional<Node> Tree::findReadable(const Location& location)
{
    auto node = find(location);
    return node && (isOwner(*node) || isGranted(*node)) ? node : std::nullopt;
}

/// What may not be seen is answered like what is not there: another status would tell that it exists.
Node Tree::readable(const Location& location)
{
    auto node = findReadable(location);
    if (!node) throw sentences::notFound();
    return *node;
}

Node Tree::owned(const Location& location)
{
    auto node = readable(location);
    if (!isOwner(node)) throw sentences::readOnly();
    return node;
}

Slot Tree::slot(const Location& location)
{
    if (location.path.isRoot()) {
        owned(location);
        throw sentences::rootFolder();
    }
    if (auto existing = findReadable(location)) {
        if (!isOwner(*existing)) throw sentences::readOnly();
        return {existing->parent, existing->owner, existing->name, existing};
    }
    const auto parent = findReadable({location.path.parent(), location.bucket});
    if (parent && !isOwner(*parent)) throw sentences::readOnly();
    if (parent && parent->isFolder()) return {parent->id, parent->owner, location.path.name(), std::nullopt};
    // In another's bucket a missing parent and a hidden one must look alike.
    const bool ownBucket = location.bucket.empty() || location.bucket == caller.user;
    throw ownBucket ? sentences::parentMissing(location.path.parent().text()) : sentences::notFound();
}

Item Tree::item(const Node& node) const
{
    return itemOf(node, isOwner(node));
}

} // namespace tarnd
