#include "tarnd/store/Repair.h"

#include "tarnd/store/Contents.h"
#include "tarnd/store/FileSystem.h"
#include "tarnd/store/FileVersions.h"
#include "tarnd/store/Quota.h"

#include <fcntl.h>

namespace tarnd {

namespace {

/// A version that names a content which is not there.
struct LostVersion {
    VersionRow version;
    std::int64_t file = 0;
    std::string owner;
};

constexpr auto lostColumns =
    columns(column("v.id", &LostVersion::version, &VersionRow::stamp, &VersionStamp::id),
            column("v.label", &LostVersion::version, &VersionRow::stamp, &VersionStamp::label),
            column("v.created", &LostVersion::version, &VersionRow::created),
            column("v.content", &LostVersion::version, &VersionRow::content, &StoredContent::id),
            column("v.size", &LostVersion::version, &VersionRow::content, &StoredContent::size),
            column("v.sha256", &LostVersion::version, &VersionRow::content, &StoredContent::sha256),
            column("n.id", &LostVersion::file), column("u.name", &LostVersion::owner));

std::vector<LostVersion> lostVersions(Transaction& transaction, const Contents& contents)
{
    auto versions = transaction.records(lostColumns, R"(FROM versions v
        JOIN nodes n ON n.id = v.node JOIN users u ON u.id = n.owner ORDER BY n.id, v.label)");
    std::erase_if(versions, [&](const auto& each) { return contents.has(each.version.content.id); });
    return versions;
}

std::string describe(Transaction& transaction, const LostVersion& lost)
{
    const auto paths = pathsOf(transaction, "SELECT id FROM nodes WHERE id = $1", lost.file);
    const auto path = paths.find(lost.file);
    const auto& content = lost.version.content;
    return lost.owner + ":" + (path == paths.end() ? "(unreachable)" : path->second) + ", version " +
           std::to_string(lost.version.stamp.label) + ": content " + content.id + ", " +
           std::to_string(content.size) + " bytes, SHA-256 " + content.sha256;
}

void takeOut(Transaction& transaction, const LostVersion& lost, std::int64_t now)
{
    const auto file = nodeById(transaction, lost.file).value();
    transaction.run("DELETE FROM versions WHERE id = $1", lost.version.stamp.id);
    countUse(transaction, file.owner, -lost.version.content.size);
    const auto left = versionsOf(transaction, lost.file);
    if (left.empty()) {
        entriesChanged(transaction, file.parent, now);
        removeTree(transaction, lost.file);
    } else if (file.version.id == lost.version.stamp.id) {
        setCurrent(transaction, lost.file, left.front().stamp.id, now);
    }
}

/// On the disk before the rows go: of a line too many nobody comes to harm.
void append(const std::filesystem::path& record, const std::vector<std::string>& lines)
{
    std::string text;
    for (const auto& line : lines)
        text += line + "\n";
    const UniqueFd file(::open(record.c_str(), O_CREAT | O_APPEND | O_WRONLY | O_CLOEXEC, 0600));
    if (!file || ::write(file.get(), text.data(), text.size()) != static_cast<ssize_t>(text.size()) ||
        ::fdatasync(file.get()) != 0)
        throw systemError(record);
    syncFolder(record.parent_path());
}

} // namespace

std::vector<std::string> setMissingAside(Engine engine, const std::filesystem::path& record)
{
    return engine.database.write([&](Transaction& transaction) {
        std::vector<std::string> lines;
        const auto lost = lostVersions(transaction, engine.contents);
        for (const auto& each : lost)
            lines.push_back(describe(transaction, each));
        if (!lines.empty()) append(record, lines);
        for (const auto& each : lost)
            takeOut(transaction, each, engine.clock());
        return lines;
    });
}

} // namespace tarnd
