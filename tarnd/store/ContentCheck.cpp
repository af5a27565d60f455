#include "tarnd/store/ContentCheck.h"

#include "tarnd/store/Contents.h"
#include "tarnd/store/Database.h"

#include <algorithm>
#include <iterator>

namespace tarnd {

namespace {

std::vector<std::string> without(const std::vector<std::string>& all, const std::vector<std::string>& taken)
{
    std::vector<std::string> rest;
    std::set_difference(all.begin(), all.end(), taken.begin(), taken.end(), std::back_inserter(rest));
    return rest;
}

/// Between `beginning` and what no hex digit comes after.
std::vector<std::string> namedBeginning(Database& database, const std::string& beginning)
{
    auto rows = database.read([&](Transaction& transaction) {
        return transaction.rows<std::string>(
            "SELECT DISTINCT content FROM versions WHERE content >= $1 AND content < $2", beginning,
            beginning + "g");
    });
    std::vector<std::string> ids;
    ids.reserve(rows.size());
    for (auto& [id] : rows)
        ids.push_back(std::move(id));
    std::sort(ids.begin(), ids.end());
    return ids;
}

/// Looked at once more, in the order that makes it certain: a writer gives up its claim only after its commit, so
/// that without one a row that is not there now will never be.
bool isOrphan(Engine& engine, const std::string& id)
{
    return !engine.contents.isBeingWritten(id) &&
           !engine.database.read([&](Transaction& transaction) { return isNamed(transaction, id); });
}

} // namespace

std::vector<std::string> orphansAmong(Engine engine, const std::string& beginning)
{
    const auto present = engine.contents.ids(beginning);
    auto orphans = without(present, namedBeginning(engine.database, beginning));
    std::erase_if(orphans, [&](const auto& id) { return !isOrphan(engine, id); });
    return orphans;
}

std::vector<std::string> namedContents(Database& database)
{
    return namedBeginning(database, {});
}

bool isNamed(Transaction& transaction, const std::string& content)
{
    return transaction.value<std::int64_t>("SELECT 1 FROM versions WHERE content = $1 LIMIT 1", content)
        .has_value();
}

std::vector<std::string> describeContent(Engine engine, const std::string& content)
{
    return engine.database.read([&](Transaction& transaction) {
        const auto paths = pathsOf(transaction, "SELECT node FROM versions WHERE content = $1", content);
        std::vector<std::string> texts;
        for (const auto& [node, label, owner] : transaction.rows<std::int64_t, std::int64_t, std::string>(
                 R"(SELECT v.node, v.label, u.name FROM versions v
                    JOIN nodes n ON n.id = v.node JOIN users u ON u.id = n.owner
                    WHERE v.content = $1 ORDER BY v.label)",
                 content)) {
            const auto path = paths.find(node);
            texts.push_back(owner + ":" + (path == paths.end() ? "(unreachable)" : path->second) +
                            ", version " + std::to_string(label));
        }
        return texts;
    });
}

/// Every suspicion is looked at once more: a row deleted meanwhile is gone from a later read.
ContentCheck compareContents(Engine engine)
{
    const auto named = namedContents(engine.database);
    const auto present = engine.contents.ids();
    ContentCheck check;
    for (const auto& id : without(named, present))
        if (!engine.contents.has(id))
            for (const auto& version : describeContent(engine, id))
                check.missing.push_back(version + ": its content " + id + " is missing.");
    for (const auto& id : without(present, named))
        if (isOrphan(engine, id)) check.orphans.push_back(id);
    return check;
}

} // namespace tarnd
