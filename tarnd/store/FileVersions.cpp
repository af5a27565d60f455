#include "tarnd/store/FileVersions.h"

#include "tarnd/store/Quota.h"
#include "tarnd/store/Secrets.h"

namespace tarnd {

namespace {

constexpr std::size_t versionIdBytes = 12;

void replaceCurrent(Transaction& transaction, const Node& file, const StoredContent& content,
                    std::int64_t now, std::vector<std::string>& dropped)
{
    transaction.run(R"(UPDATE versions
                       SET created = $1, size = $2, sha256 = $3, content = $4, revision = revision + 1
                       WHERE id = $5)",
                    now, content.size, content.sha256, content.id, file.version.id);
    setCurrent(transaction, file.id, file.version.id, now);
    // A restored copy may still show the old content.
    if (!transaction.value<std::int64_t>("SELECT 1 FROM versions WHERE content = $1 LIMIT 1", file.content))
        dropped.push_back(file.content);
}

/// Without a look at what the database makes of it: nothing is asked until the commit.
VersionStamp insertFile(Transaction& transaction, const Slot& slot, const StoredContent& content,
                        std::int64_t now)
{
    const VersionStamp stamp{randomHex(versionIdBytes), 1};
    insertNode(transaction, slot, ItemKind::file, now, stamp.id);
    transaction.run(R"(INSERT INTO versions (id, node, label, created, size, sha256, content)
                       SELECT $1, id, $2, $3, $4, $5, $6 FROM nodes WHERE parent = $7 AND name = $8)",
                    stamp.id, stamp.label, now, content.size, content.sha256, content.id, slot.parent,
                    slot.name);
    return stamp;
}

VersionRow currentOf(const Node& file)
{
    return {file.version, file.versionCreated, file.versionRevision, {file.content, file.size, file.sha256}};
}

constexpr auto versionColumns = columns(
    column("id", &VersionRow::stamp, &VersionStamp::id), //
    column("label", &VersionRow::stamp, &VersionStamp::label), column("created", &VersionRow::created),
    column("revision", &VersionRow::revision), column("content", &VersionRow::content, &StoredContent::id),
    column("size", &VersionRow::content, &StoredContent::size),
    column("sha256", &VersionRow::content, &StoredContent::sha256));

template <class... Args>
std::vector<VersionRow> versionRows(Transaction& transaction, const std::string& condition,
                                    const Args&... args)
{
    return transaction.records(versionColumns, "FROM versions WHERE " + condition, args...);
}

} // namespace

Slot slotForPut(Tree& tree, const Location& location, CreateMode mode)
{
    if (mode == CreateMode::update || location.path.isRoot()) {
        const auto file = requireFile(tree.owned(location));
        return {file.parent, file.owner, file.name, file};
    }
    auto slot = tree.slot(location);
    if (slot.existing) requireFile(*slot.existing);
    if (slot.existing && mode == CreateMode::create) throw sentences::fileExists();
    return slot;
}

VersionStamp writeFile(Transaction& transaction, const Caller& caller, const Slot& slot,
                       const StoredContent& content, bool createNewVersion, std::int64_t now,
                       std::vector<std::string>& dropped)
{
    if (slot.existing && createNewVersion)
        return addVersion(transaction, caller, *slot.existing, content, now);
    countUse(transaction, caller, slot.owner, content.size - (slot.existing ? slot.existing->size : 0));
    if (!slot.existing) return insertFile(transaction, slot, content, now);
    replaceCurrent(transaction, *slot.existing, content, now, dropped);
    return slot.existing->version;
}

VersionStamp addVersion(Transaction& transaction, const Caller& caller, const Node& file,
                        const StoredContent& content, std::int64_t now)
{
    countUse(transaction, caller, file.owner, content.size);
    const auto last = transaction.value<std::int64_t>(
        "SELECT COALESCE(MAX(label), 0) FROM versions WHERE node = $1", file.id);
    const VersionStamp stamp{randomHex(versionIdBytes), last.value() + 1};
    transaction.run(R"(INSERT INTO versions (id, node, label, created, size, sha256, content)
                       VALUES ($1, $2, $3, $4, $5, $6, $7))",
                    stamp.id, file.id, stamp.label, now, content.size, content.sha256, content.id);
    setCurrent(transaction, file.id, stamp.id, now);
    return stamp;
}

void setCurrent(Transaction& transaction, std::int64_t file, const std::string& versionId, std::int64_t now)
{
    transaction.run("UPDATE nodes SET current = $1, modified = $2, revision = revision + 1 WHERE id = $3",
                    versionId, now, file);
}

std::vector<VersionRow> versionsOf(Transaction& transaction, std::int64_t file)
{
    return versionRows(transaction, "node = $1 ORDER BY label DESC", file);
}

VersionRow chosenVersion(Transaction& transaction, const Node& file, const VersionChoice& choice)
{
    if (choice.isCurrent() && !file.version.id.empty()) return currentOf(file);
    std::vector<VersionRow> found;
    if (choice.id.empty())
        found = versionRows(transaction, "node = $1 AND label = $2", file.id, choice.label);
    else
        found = versionRows(transaction, "id = $1 AND node = $2", choice.id, file.id);
    const bool contradicts = !found.empty() && choice.label >= 1 && found.front().stamp.label != choice.label;
    if (found.empty() || contradicts) throw sentences::unknownVersion();
    return found.front();
}

} // namespace tarnd
