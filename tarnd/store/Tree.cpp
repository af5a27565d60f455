#include "tarnd/store/Tree.h"

#include "tarnd/store/Sessions.h"

#include <Poco/String.h>

#include <algorithm>
#include <span>

namespace tarnd {

namespace {

/// How many names one query follows: each is a subquery, and the engines limit how deep these nest.
constexpr std::size_t namesPerQuery = 6;

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
            column("COALESCE(v.content, '')", &Node::content),
            column("COALESCE(v.created, 0)", &Node::versionCreated),
            column("COALESCE(v.revision, 0)", &Node::versionRevision));

/// What an item shows of its node: no text but the name, since a folder may have very many.
constexpr auto entryColumns = columns(
    column("n.id", &Node::id), column("n.parent", &Node::parent), column("n.kind", &Node::kind),
    column("n.name", &Node::name), column("n.created", &Node::created), column("n.modified", &Node::modified),
    column("n.revision", &Node::revision), column("COALESCE(v.size, 0)", &Node::size));

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

std::string place(std::size_t number)
{
    return "$" + std::to_string(number);
}

/// Where a path begins: what stands in a placeholder, and the SQL about it that yields the id of that node.
struct RootOfUser {
    std::int64_t value;

    static std::string id(const std::string& user)
    {
        return "(SELECT id FROM nodes WHERE parent IS NULL AND owner = " + user + ")";
    }
};

struct RootOfBucket {
    std::string value;

    static std::string id(const std::string& bucket)
    {
        return RootOfUser::id("(SELECT id FROM users WHERE name = " + bucket + ")");
    }
};

struct NodeItself {
    std::int64_t value;

    static std::string id(const std::string& node) { return node; }
};

/// The id of the node that the names in the placeholders `first` to `last` lead to from `start`, the last name first.
std::string reached(std::size_t first, std::size_t last, const std::string& start)
{
    std::string sql;
    for (auto i = first; i <= last; ++i)
        sql += "(SELECT id FROM nodes WHERE name = " + place(i) + " AND parent = ";
    return sql + start + std::string(last + 1 - first, ')');
}

/// "n" is what the names in the first placeholders lead to from `start`, or the folder that it is in when `withParent`.
std::string leadTo(std::size_t names, const std::string& start, bool withParent)
{
    if (names == 0) return "n.id = " + start;
    const auto folder = reached(2, names, start);
    if (withParent) return "n.id IN (" + reached(1, names, start) + ", " + folder + ")";
    return "n.name = $1 AND n.parent = " + folder;
}

/// "n" or a folder above it is granted to the user in the placeholder.
std::string isGrantedTo(const std::string& user)
{
    return R"( AND EXISTS (
        WITH RECURSIVE up(id, parent) AS (
            SELECT n.id, n.parent
            UNION ALL
            SELECT p.id, p.parent FROM nodes p JOIN up ON p.id = up.parent)
        SELECT 1 FROM up JOIN grants g ON g.node = up.id WHERE g.subject = )" +
           user + ")";
}

/// What a path leads to, and the folder that it is in when `withParent`, in any order.
/// @param viewer to whom it must be granted; empty: whoever asks
template <class Start>
std::vector<Node> follow(Transaction& transaction, const Start& start, std::span<const std::string> names,
                         bool withParent = false, const std::string& viewer = {})
{
    const auto count = std::min(names.size(), namesPerQuery);
    const auto from = Start::id(place(count + 1));
    std::vector<std::string> args(names.begin(), names.begin() + static_cast<std::ptrdiff_t>(count));
    std::reverse(args.begin(), args.end());
    if (count < names.size()) {
        const auto id = transaction.value<std::int64_t>(
            "SELECT id FROM nodes WHERE id = " + reached(1, count, from), args, start.value);
        if (!id) return {};
        return follow(transaction, NodeItself{*id}, names.subspan(count), withParent, viewer);
    }
    const auto condition = leadTo(count, from, withParent);
    if (viewer.empty()) return nodes(transaction, condition, args, start.value);
    return nodes(transaction, condition + isGrantedTo(place(count + 2)), args, start.value, viewer);
}

} // namespace

std::optional<Node> nodeById(Transaction& transaction, std::int64_t id)
{
    return node(transaction, "n.id = $1", id);
}

std::optional<Node> nodeBelow(Transaction& transaction, std::int64_t start, const ItemPath& path)
{
    auto found = follow(transaction, NodeItself{start}, path.names());
    return found.empty() ? std::nullopt : std::optional(std::move(found.front()));
}

Node rootOf(Transaction& transaction, std::int64_t userId)
{
    auto root = node(transaction, "n.parent IS NULL AND n.owner = $1", userId);
    if (!root) throw sentences::sessionEnded(); // the user was removed after the session was looked up
    return *root;
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
    transaction.eachRecord(
        entryColumns,
        [&](const Node& child) {
            (child.isFolder() ? listing.folders : listing.files).push_back(itemOf(child, writable));
        },
        nodesWhere + "n.parent = $1 ORDER BY n.name", folder.id);
    return listing;
}

void insertNode(Transaction& transaction, const Slot& slot, ItemKind kind, std::int64_t now,
                const std::string& currentVersion)
{
    transaction.run(
        R"(INSERT INTO nodes (owner, parent, name, kind, created, modified, current)
           VALUES ($1, $2, $3, $4, $5, $6, $7))",
        slot.owner, slot.parent, slot.name, kind, now, now, currentVersion);
    entriesChanged(transaction, slot.parent, now);
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
    transaction.run("UPDATE users SET used = used - COALESCE((" + below +
                        "SELECT SUM(v.size) FROM versions v JOIN below b ON v.node = b.id), 0) "
                        "WHERE id = (SELECT owner FROM nodes WHERE id = $1)",
                    node);
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

Database::Statements Tree::statementsFor(const Location& location)
{
    const bool one = location.path.names().size() <= namesPerQuery;
    return one ? Database::Statements::one : Database::Statements::several;
}

Tree::Tree(Transaction& transaction, const Caller& caller) : transaction(transaction), caller(caller)
{
    if (caller.isAssumed) requireSession(transaction, caller);
}

bool Tree::isOwnBucket(const Location& location) const
{
    return location.bucket.empty() || location.bucket == caller.user;
}

/// What may not be seen is answered like what is not there: another status would tell that it exists.
std::vector<Node> Tree::visible(const Location& location, bool withParent)
{
    const auto& names = location.path.names();
    if (!isOwnBucket(location))
        return follow(transaction, RootOfBucket{location.bucket}, names, withParent, caller.user);
    auto found = follow(transaction, RootOfUser{caller.userId}, names, withParent);
    if (found.empty()) rootOf(transaction, caller.userId);
    return found;
}

Node Tree::readable(const Location& location)
{
    auto found = visible(location, false);
    if (found.empty()) throw sentences::notFound();
    return std::move(found.front());
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
    auto found = visible(location, true);
    if (!found.empty() && !isOwner(found.front())) throw sentences::readOnly();
    // The folder is there when what it holds is.
    if (found.size() == 2) {
        auto& existing = found[0].parent == found[1].id ? found[0] : found[1];
        return {existing.parent, existing.owner, existing.name, std::move(existing)};
    }
    if (found.size() == 1 && found.front().isFolder())
        return {found.front().id, found.front().owner, location.path.name(), std::nullopt};
    // In another's bucket a missing parent and a hidden one must look alike.
    throw isOwnBucket(location) ? sentences::parentMissing(location.path.parent().text())
                                : sentences::notFound();
}

Item Tree::item(const Node& node) const
{
    return itemOf(node, isOwner(node));
}

} // namespace tarnd
