#include "tarnd/store/Recovery.h"

#include "tarnd/store/ContentCheck.h"
#include "tarnd/store/Contents.h"
#include "tarnd/store/Database.h"

#include <algorithm>
#include <iterator>

namespace tarnd {

namespace {

/// Removes those of the contents that no row names. Asked under the write lock: a process that died may have
/// sent its COMMIT, and the database still be at it. Removed under it: a writer that was taken for dead looks for
/// its content once it has the lock. In small pieces, so that the other processes get their turns soon, and PostgreSQL
/// does not take this one for stopped.
std::size_t dropOrphans(Engine& engine, const std::vector<std::string>& suspects)
{
    constexpr std::ptrdiff_t piece = 20;
    std::size_t dropped = 0;
    for (auto at = suspects.begin(); at != suspects.end();) {
        const auto end = at + std::min(piece, suspects.end() - at);
        dropped += engine.database.write([&](Transaction& transaction) {
            std::vector<std::string> orphans;
            std::copy_if(at, end, std::back_inserter(orphans),
                         [&](const std::string& id) { return !isNamed(transaction, id); });
            engine.contents.dropNow(orphans);
            return orphans.size();
        });
        at = end;
    }
    return dropped;
}

} // namespace

RecoveryReport recover(Engine engine)
{
    RecoveryReport report;
    report.abandonedUploads = engine.contents.dropAbandonedUploads();
    const auto check = compareContents(engine);
    if (!check.missing.empty()) {
        std::string detail;
        for (const auto& missing : check.missing)
            detail.append(detail.empty() ? "" : "\n").append(missing);
        throw sentences::contentsMissing.because(detail);
    }
    report.orphanedContents = dropOrphans(engine, check.orphans);
    return report;
}

RecoveryReport sweep(Engine engine, const std::function<bool()>& shallEnd)
{
    RecoveryReport report;
    report.abandonedUploads = engine.contents.dropAbandonedUploads();
    for (const char beginning : std::string("0123456789abcdef"))
        if (!shallEnd()) report.orphanedContents += dropOrphans(engine, orphansAmong(engine, {beginning}));
    return report;
}

} // namespace tarnd
