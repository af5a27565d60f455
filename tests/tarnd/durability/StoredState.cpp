#include "tests/tarnd/durability/StoredState.h"

#include "tarnd/store/ContentFolder.h"
#include "tarnd/store/Database.h"
#include "tarnd/store/Dialect.h"
#include "tarnd/store/Fsck.h"

#include <set>

namespace tarnd::test {

namespace {

const std::string everythingOf = R"(
    WITH RECURSIVE tree(id, kind, current, path) AS (
        SELECT n.id, n.kind, n.current, '' FROM nodes n JOIN users u ON u.id = n.owner
            WHERE n.parent IS NULL AND u.name = $1
        UNION ALL
        SELECT n.id, n.kind, n.current, t.path || '/' || n.name FROM nodes n JOIN tree t ON n.parent = t.id)
    SELECT path || ' is of kind ' || kind AS line FROM tree
    UNION ALL SELECT t.path || ' has version ' || v.label || CASE v.id WHEN t.current THEN ', current: ' ELSE ': ' END
                     || v.size || ' bytes, ' || v.sha256 FROM versions v JOIN tree t ON t.id = v.node
    UNION ALL SELECT t.path || ' is granted ' || CASE g.subject WHEN 'keeper' THEN '' ELSE 'to nobody yet' END
                     FROM grants g JOIN tree t ON t.id = g.node
    UNION ALL SELECT t.path || ' is linked until ' || l.expires FROM links l JOIN tree t ON t.id = l.node
    UNION ALL SELECT 'a session' FROM sessions s JOIN users u ON u.id = s.account WHERE u.name = $1
    UNION ALL SELECT 'a handle for ' || h.name FROM handles h JOIN sessions s ON s.id = h.session
                                               JOIN users u ON u.id = s.account WHERE u.name = $1
    ORDER BY line)";

} // namespace

std::string stateOf(const std::filesystem::path& dataDir, const std::string& user)
{
    Database database(sqliteDialect(dataDir / "tarn.db"));
    return database.read([&](Transaction& transaction) {
        std::string text;
        for (const auto& [line] : transaction.rows<std::string>(everythingOf, user))
            text += line + "\n";
        return text;
    });
}

std::string faultsIn(const std::filesystem::path& dataDir)
{
    Database database(sqliteDialect(dataDir / "tarn.db"));
    DiskRoom room(dataDir, 0);
    ContentFolder contents(dataDir, room);
    std::string text;
    for (const auto& problem : fsck({database, contents, systemTime}).problems)
        text += problem + "\n";
    const std::set<std::string> known{"contents",    "lock",        "store-id", "tarn.db",
                                      "tarn.db-shm", "tarn.db-wal", "uploads"};
    for (const auto& folder : {dataDir, dataDir / "uploads"})
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            if (!known.contains(entry.path().filename())) text += entry.path().string() + " was left\n";
    return text;
}

} // namespace tarnd::test
