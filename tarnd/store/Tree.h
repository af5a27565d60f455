#pragma once

#include "tarnd/store/Caller.h"
#include "tarnd/store/Database.h"
#include "tarnd/store/Item.h"
#include "tarnd/store/ItemPath.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tarnd {

/// A row of the tree with its current version.
struct Node {
    std::int64_t id = 0;
    std::int64_t parent = 0; ///< 0 for a root folder
    std::int64_t owner = 0;
    ItemKind kind = ItemKind::folder;
    std::string name; ///< empty for a root folder
    std::int64_t created = 0;
    std::int64_t modified = 0;
    std::int64_t revision = 0;
    VersionStamp version; ///< this and the rest: of the current version; empty for a folder
    std::int64_t size = 0;
    std::string sha256;
    std::string content;
    std::int64_t versionCreated = 0;
    std::int64_t versionRevision = 0;

    bool isFolder() const { return kind == ItemKind::folder; }
};

/// A place where an item may come to be, in a folder that the caller owns.
struct Slot {
    std::int64_t parent = 0;
    std::int64_t owner = 0;
    std::string name;
    std::optional<Node> existing; ///< what has the name now
};

/// The tree as one caller sees it, inside one transaction: the only place that decides who may see and change what.
/// A session that is only assumed to live is asked for with the first query.
class Tree {
public:
    /// How many statements readable(), owned() and slot() make when they find what they look for.
    static Database::Statements statementsFor(const Location& location);

    /// @throws ServiceError loginRequired, at once or with the first query
    Tree(Transaction& transaction, const Caller& caller);

    /// The item, if the caller owns it or it or a folder above it is granted to them. @throws notFound
    Node readable(const Location& location);

    /// The item, if the caller owns it. @throws notFound, notAllowed for one that is only readable
    Node owned(const Location& location);

    /// The place of an item that may or may not be there. An owner whose parent folder is missing gets a
    /// conflict that names it; where nothing may be seen everything is notFound. @throws also notAllowed,
    /// conflict for root
    Slot slot(const Location& location);

    bool isOwner(const Node& node) const { return node.owner == caller.userId; }

    Item item(const Node& node) const;

private:
    bool isOwnBucket(const Location& location) const;
    std::vector<Node> visible(const Location& location, bool withParent);

    Transaction& transaction;
    const Caller& caller;
};

/// The node itself, whoever asks.
std::optional<Node> nodeById(Transaction& transaction, std::int64_t id);

/// The item of that path below `start`, whoever asks.
std::optional<Node> nodeBelow(Transaction& transaction, std::int64_t start, const ItemPath& path);

/// The root folder of a user. Every user has one.
Node rootOf(Transaction& transaction, std::int64_t userId);

/// The nodes that `nodes`, a SELECT of one column about the text $1, yields.
std::vector<Node> nodesIn(Transaction& transaction, const std::string& nodes, const std::string& text);

/// The node is the folder itself or lies anywhere below it.
bool isWithin(Transaction& transaction, std::int64_t node, std::int64_t folder);

bool hasChildren(Transaction& transaction, std::int64_t folder);

Item itemOf(const Node& node, bool writable);

/// The folder and its direct entries by name.
Listing listingOf(Transaction& transaction, const Node& folder, bool writable);

/// The node itself, if it is of that kind. @throws ServiceError conflict
Node requireFile(Node node);
Node requireFolder(Node node);

/// Makes an entry of a folder.
void insertNode(Transaction& transaction, const Slot& slot, ItemKind kind, std::int64_t now,
                const std::string& currentVersion = {});

/// Tells the folder that an entry has come or gone.
void entriesChanged(Transaction& transaction, std::int64_t folder, std::int64_t now);

/// Deletes the node and all below it; returns the contents to drop after the commit.
std::vector<std::string> removeTree(Transaction& transaction, std::int64_t node);

/// The query that yields start and path of all nodes whose id is in the result of `nodes`, a SELECT of one column.
std::string pathsQuery(const std::string& nodes);

/// Paths by node id for the nodes that `nodes`, a SELECT of one column with these arguments, yields.
template <class... Args>
std::map<std::int64_t, std::string> pathsOf(Transaction& transaction, const std::string& nodes,
                                            const Args&... args)
{
    std::map<std::int64_t, std::string> paths;
    for (auto& [id, path] : transaction.rows<std::int64_t, std::string>(pathsQuery(nodes), args...))
        paths.emplace(id, path.empty() ? "/" : std::move(path));
    return paths;
}

} // namespace tarnd
