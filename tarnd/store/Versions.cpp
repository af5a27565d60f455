#include "tarnd/store/Versions.h"

#include "tarnd/store/ContentCheck.h"
#include "tarnd/store/ContentFolder.h"
#include "tarnd/store/FileVersions.h"
#include "tarnd/store/Quota.h"

#include <algorithm>
#include <span>

namespace tarnd {

VersionHistory Versions::list(const Caller& caller, const Location& location)
{
    return engine.database.read([&](Transaction& transaction) {
        const auto file = requireFile(Tree(transaction, caller).readable(location));
        VersionHistory history{file.name, {}};
        for (const auto& row : versionsOf(transaction, file.id))
            history.versions.push_back({row.stamp, row.created, row.content.size, row.content.sha256,
                                        row.stamp.id == file.version.id});
        return history;
    });
}

VersionStamp Versions::restore(const Caller& caller, const Location& location, const VersionChoice& version,
                               bool createNewVersion, const Condition& condition)
{
    return engine.database.write(WriteScope{caller.userId}, [&](Transaction& transaction) {
        const auto file = requireFile(Tree(transaction, caller).owned(location));
        condition.require(file);
        // Nothing chosen means the current version everywhere else; restoring that would silently do nothing.
        if (version.isCurrent()) throw sentences::unknownVersion();
        const auto old = chosenVersion(transaction, file, version);
        if (createNewVersion) return addVersion(transaction, caller, file, old.content, engine.clock());
        if (old.stamp.id != file.version.id) setCurrent(transaction, file.id, old.stamp.id, engine.clock());
        return old.stamp;
    });
}

namespace {

struct OldVersion {
    std::string id, content;
    std::int64_t size = 0;
};

std::vector<OldVersion> oldVersions(Transaction& transaction, std::int64_t owner, const PruneRule& rule)
{
    std::vector<OldVersion> old;
    for (auto& [id, content, size] : transaction.rows<std::string, std::string, std::int64_t>(
             R"(SELECT r.id, r.content, r.size FROM (
                    SELECT v.id, v.content, v.size, v.created, n.current,
                           ROW_NUMBER() OVER (PARTITION BY v.node ORDER BY v.label DESC) AS place
                    FROM versions v JOIN nodes n ON n.id = v.node WHERE n.owner = $1) r
                WHERE r.place > $2 AND r.created < $3 AND r.id <> r.current)",
             owner, rule.keep, rule.before))
        old.push_back({std::move(id), std::move(content), size});
    return old;
}

/// @returns the contents that nothing names any more
std::vector<std::string> removeVersions(Transaction& transaction, std::int64_t owner,
                                        std::span<const OldVersion> old, PruneReport& report)
{
    PruneReport removed;
    std::vector<std::string> contents;
    for (const auto& version : old) {
        // It may be the current one by now.
        const auto size = transaction.value<std::int64_t>(
            R"(DELETE FROM versions WHERE id = $1 AND NOT EXISTS (
                   SELECT 1 FROM nodes n WHERE n.id = versions.node AND n.current = versions.id)
               RETURNING size)",
            version.id);
        if (!size) continue;
        ++removed.versions;
        removed.bytes += *size;
        if (!isNamed(transaction, version.content)) contents.push_back(version.content);
    }
    countUse(transaction, owner, -removed.bytes);
    report.versions += removed.versions;
    report.bytes += removed.bytes;
    return contents;
}

} // namespace

/// In pieces, so that the user's own changes get their turns.
std::vector<PruneReport> Versions::prune(const PruneRule& rule, const std::string& user, bool dryRun)
{
    constexpr std::size_t piece = 500;
    const auto users = engine.database.read([&](Transaction& transaction) {
        return transaction.rows<std::int64_t, std::string>(
            "SELECT id, name FROM users WHERE name = $1 OR $2 = '' ORDER BY name", user, user);
    });
    if (users.empty() && !user.empty()) throw sentences::unknownUser(user);
    std::vector<PruneReport> reports;
    for (const auto& [owner, name] : users) {
        const auto old = engine.database.read(
            [&, id = owner](Transaction& transaction) { return oldVersions(transaction, id, rule); });
        PruneReport report{name};
        if (dryRun)
            for (const auto& version : old) {
                ++report.versions;
                report.bytes += version.size;
            }
        for (std::span<const OldVersion> rest(old); !dryRun && !rest.empty();) {
            const auto next = rest.first(std::min(piece, rest.size()));
            PruneReport done;
            engine.contents.drop(engine.database.writeAlsoWhenFull(
                WriteScope{owner}, [&, id = owner](Transaction& transaction) {
                    done = {};
                    return removeVersions(transaction, id, next, done);
                }));
            report.versions += done.versions;
            report.bytes += done.bytes;
            rest = rest.subspan(next.size());
        }
        if (report.versions > 0) reports.push_back(std::move(report));
    }
    return reports;
}

} // namespace tarnd
