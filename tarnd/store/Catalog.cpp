#include "tarnd/store/Catalog.h"

#include "tarnd/store/Contents.h"
#include "tarnd/store/FileVersions.h"
#include "tarnd/store/Quota.h"
#include "tarnd/store/ReadContent.h"
#include "tarnd/store/Tree.h"

#include <algorithm>

namespace tarnd {

std::unique_ptr<Upload> Catalog::put(const Caller& caller, const Location& location,
                                     const PutOptions& options, std::optional<std::uint64_t> expectedSize)
{
    const bool checksLater = options.isComing && !engine.contents.isRemote();
    const auto check = [&] {
        const auto room = requirePut(engine, caller, location, options);
        room.require(expectedSize.value_or(0));
        return room;
    };
    const auto quota = checksLater ? QuotaRoom() : check();
    try {
        auto room = engine.contents.claimRoom(expectedSize.value_or(0));
        return std::make_unique<Upload>(engine, caller, location, options, expectedSize, std::move(room),
                                        quota);
    } catch (const ServiceError&) {
        if (checksLater) check(); // what is wrong with the request itself is told first
        throw;
    }
}

OpenContent Catalog::read(const Caller& caller, const Location& location, const VersionChoice& version)
{
    const auto statements =
        version.isCurrent() ? Tree::statementsFor(location) : Database::Statements::several;
    return readContent(engine, statements, [&](Transaction& transaction) {
        Tree tree(transaction, caller);
        const auto file = requireFile(tree.readable(location));
        return FoundContent(file, tree.item(file), chosenVersion(transaction, file, version));
    });
}

void Catalog::deleteFile(const Caller& caller, const Location& location, const Condition& condition)
{
    const auto dropped =
        engine.database.writeAlsoWhenFull(WriteScope{caller.userId}, [&](Transaction& transaction) {
            const auto file = requireFile(Tree(transaction, caller).owned(location));
            condition.require(file);
            entriesChanged(transaction, file.parent, engine.clock());
            return removeTree(transaction, file.id);
        });
    engine.contents.drop(dropped);
}

Item Catalog::attributes(const Caller& caller, const Location& location)
{
    return engine.database.read(Tree::statementsFor(location), [&](Transaction& transaction) {
        Tree tree(transaction, caller);
        return tree.item(tree.readable(location));
    });
}

void Catalog::createFolder(const Caller& caller, const Location& location)
{
    engine.database.write(WriteScope{caller.userId}, [&](Transaction& transaction) {
        Tree tree(transaction, caller);
        if (location.path.isRoot()) {
            tree.owned(location);
            throw sentences::folderExists();
        }
        const auto slot = tree.slot(location);
        if (slot.existing)
            throw slot.existing->isFolder() ? sentences::folderExists() : sentences::fileExists();
        insertNode(transaction, slot, ItemKind::folder, engine.clock());
    });
}

Listing Catalog::list(const Caller& caller, const Location& location)
{
    return engine.database.read([&](Transaction& transaction) {
        Tree tree(transaction, caller);
        const auto folder = requireFolder(tree.readable(location));
        return listingOf(transaction, folder, tree.isOwner(folder));
    });
}

void Catalog::deleteFolder(const Caller& caller, const Location& location, bool forceRecursive)
{
    const auto dropped =
        engine.database.writeAlsoWhenFull(WriteScope{caller.userId}, [&](Transaction& transaction) {
            const auto folder = requireFolder(Tree(transaction, caller).owned(location));
            if (!folder.parent) throw sentences::rootFolder();
            if (!forceRecursive && hasChildren(transaction, folder.id)) throw sentences::folderNotEmpty();
            entriesChanged(transaction, folder.parent, engine.clock());
            return removeTree(transaction, folder.id);
        });
    engine.contents.drop(dropped);
}

namespace {

/// Makes room for `source` at the target; returns the contents to drop.
std::vector<std::string> clearTarget(Transaction& transaction, const Node& source, const Node& target,
                                     bool overwrite)
{
    if (!overwrite) throw sentences::targetExists();
    const bool filled = target.isFolder() && hasChildren(transaction, target.id);
    if (source.kind != target.kind || filled) throw sentences::targetDiffers();
    return removeTree(transaction, target.id);
}

} // namespace

void Catalog::move(const Caller& caller, const Location& source, const Location& target, bool overwrite)
{
    const auto dropped = engine.database.writeAlsoWhenFull(
        WriteScope{caller.userId}, [&](Transaction& transaction) -> std::vector<std::string> {
            Tree tree(transaction, caller);
            const auto moved = tree.owned(source);
            if (!moved.parent) throw sentences::rootFolder();
            const auto slot = tree.slot(target);
            if (slot.existing && slot.existing->id == moved.id && overwrite) return {};
            if (isWithin(transaction, slot.parent, moved.id)) throw sentences::intoItself();
            std::vector<std::string> contents;
            if (slot.existing) contents = clearTarget(transaction, moved, *slot.existing, overwrite);
            const auto now = engine.clock();
            transaction.run("UPDATE nodes SET parent = $1, name = $2 WHERE id = $3", slot.parent, slot.name,
                            moved.id);
            entriesChanged(transaction, moved.parent, now);
            if (slot.parent != moved.parent) entriesChanged(transaction, slot.parent, now);
            return contents;
        });
    engine.contents.drop(dropped);
}

} // namespace tarnd
