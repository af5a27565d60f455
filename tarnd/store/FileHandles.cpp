#include "tarnd/store/FileHandles.h"

#include "tarnd/store/ContentEntry.h"
#include "tarnd/store/Secrets.h"
#include "tarnd/store/Sessions.h"

namespace tarnd {

namespace {

constexpr std::size_t handleIdBytes = 16;

/// A handle as stored; see Schema.cpp.
struct Handle {
    std::int64_t parent = 0;
    std::string name;
    std::int64_t node = 0; ///< 0: the commit creates the file
    CreateMode mode = CreateMode::update;
    bool changes = false; ///< a commit has something to make visible
};

constexpr auto handleColumns =
    columns(column("parent", &Handle::parent), column("name", &Handle::name), column("node", &Handle::node),
            column("mode", &Handle::mode), column("changes", &Handle::changes));

std::string insertHandle(Transaction& transaction, const Caller& caller, const Handle& handle)
{
    const auto id = randomHex(handleIdBytes);
    transaction.run(R"(INSERT INTO handles (id, session, parent, name, node, mode, changes)
                       VALUES ($1, $2, $3, $4, $5, $6, $7))",
                    id, caller.sessionKey, handle.parent, handle.name, handle.node, handle.mode,
                    handle.changes);
    return id;
}

Handle handleById(Transaction& transaction, const Caller& caller, const std::string& id)
{
    const auto found = transaction.record(handleColumns, "FROM handles WHERE id = $1 AND session = $2", id,
                                          caller.sessionKey);
    if (!found) throw sentences::unknownHandle();
    return *found;
}

/// Reads the handle and ends it.
Handle takeHandle(Transaction& transaction, const Caller& caller, const std::string& id)
{
    auto handle = handleById(transaction, caller, id);
    transaction.run("DELETE FROM handles WHERE id = $1", id);
    return handle;
}

Slot slotOf(Transaction& transaction, const Handle& handle)
{
    if (handle.node) {
        auto file = nodeById(transaction, handle.node);
        if (!file) throw sentences::handleWithoutFile();
        return {file->parent, file->owner, file->name, std::move(file)};
    }
    const auto folder = nodeById(transaction, handle.parent);
    if (!folder) throw sentences::handleWithoutFile();
    auto existing = nodeBelow(transaction, folder->id, ItemPath::fromText("/" + handle.name));
    if (existing) requireFile(*existing);
    if (existing && handle.mode == CreateMode::create) throw sentences::fileExists();
    return {folder->id, folder->owner, handle.name, std::move(existing)};
}

} // namespace

OpenHandle FileHandles::openReadOnly(const Caller& caller, const Location& location,
                                     const VersionChoice& version)
{
    return engine.database.write([&](Transaction& transaction) {
        requireSession(transaction, caller);
        const auto file = requireFile(Tree(transaction, caller).readable(location));
        const auto chosen = chosenVersion(transaction, file, version);
        const auto id =
            insertHandle(transaction, caller, {file.parent, file.name, file.id, CreateMode::update, false});
        return OpenHandle{id, chosen.content.size, false};
    });
}

OpenHandle FileHandles::openReadWrite(const Caller& caller, const Location& location, CreateMode mode,
                                      bool truncate)
{
    return engine.database.write(WriteScope{caller.userId}, [&](Transaction& transaction) {
        requireSession(transaction, caller);
        Tree tree(transaction, caller);
        const auto slot = slotForPut(tree, location, mode);
        const bool created = !slot.existing;
        const Handle handle{slot.parent, slot.name, created ? 0 : slot.existing->id, mode,
                            created || truncate};
        return OpenHandle{insertHandle(transaction, caller, handle), handle.changes ? 0 : slot.existing->size,
                          created};
    });
}

void FileHandles::close(const Caller& caller, const std::string& handleId, CloseOperation operation,
                        bool createNewVersion)
{
    const WriteScope scope{caller.userId};
    const auto take = [&](Transaction& transaction) { return takeHandle(transaction, caller, handleId); };
    // Asked first, so that most handles end without a content being written; the transaction asks again.
    const bool makesVisible =
        operation == CloseOperation::commit && engine.database.read([&](Transaction& transaction) {
            return handleById(transaction, caller, handleId).changes;
        });
    if (!makesVisible) {
        engine.database.write(scope, take);
        return;
    }
    const auto empty = engine.contents.write(0);
    try {
        // The handle ends in the transaction that makes its file visible: a crash leaves both or neither.
        enterContent(engine, *empty, scope,
                     [&](Transaction& transaction, const StoredContent& content, auto& dropped) {
                         return writeFile(transaction, caller, slotOf(transaction, take(transaction)),
                                          content, createNewVersion, engine.clock(), dropped);
                     });
    } catch (const ServiceError& error) {
        // The file cannot be made any more, however often it is tried. Any other failure may pass, and keeps
        // the handle.
        if (error.kind() == ServiceError::Kind::conflict) engine.database.write(scope, take);
        throw;
    }
}

} // namespace tarnd
