#include "tarnd/store/Fsck.h"

#include "tarnd/store/ContentCheck.h"
#include "tarnd/store/Contents.h"
#include "tarnd/store/Database.h"
#include "tarnd/store/Secrets.h"

#include <chrono>
#include <thread>

namespace tarnd {

namespace {

/// A query for the ids of nodes that should not be as they are, and what is wrong with them.
struct TreeRule {
    const char* problem;
    const char* query;
};

constexpr TreeRule treeRules[] = {
    {"cannot be reached from a root folder",
     R"(WITH RECURSIVE reached(id) AS (
            SELECT id FROM nodes WHERE parent IS NULL
            UNION ALL
            SELECT n.id FROM nodes n JOIN reached r ON n.parent = r.id)
        SELECT id, name FROM nodes WHERE id NOT IN (SELECT id FROM reached))"},
    {"lies in a file",
     R"(SELECT n.id, n.name FROM nodes n JOIN nodes p ON p.id = n.parent WHERE p.kind <> 0)"},
    {"has another owner than its folder",
     R"(SELECT n.id, n.name FROM nodes n JOIN nodes p ON p.id = n.parent WHERE p.owner <> n.owner)"},
    {"has no current version",
     R"(SELECT n.id, n.name FROM nodes n
        LEFT JOIN versions v ON v.id = n.current AND v.node = n.id
        WHERE n.kind = 1 AND v.id IS NULL)"},
    {"is a version of a file that is not there",
     R"(SELECT v.node, v.id FROM versions v LEFT JOIN nodes n ON n.id = v.node WHERE n.id IS NULL)"},
    {"is a folder but has versions",
     R"(SELECT DISTINCT n.id, n.name FROM nodes n JOIN versions v ON v.node = n.id WHERE n.kind <> 1)"},
    {"has a root folder that is not one",
     R"(SELECT id, name FROM nodes WHERE parent IS NULL AND (kind <> 0 OR name <> ''))"},
    {"is a user whose bytes are counted wrong",
     R"(SELECT u.id, u.name FROM users u
        LEFT JOIN (SELECT n.owner, SUM(v.size) AS bytes FROM versions v JOIN nodes n ON n.id = v.node
                   GROUP BY n.owner) s ON s.owner = u.id
        WHERE u.used <> COALESCE(s.bytes, 0))"},
    {"is a user without a root folder",
     R"(SELECT u.id, u.name FROM users u
        LEFT JOIN nodes n ON n.owner = u.id AND n.parent IS NULL
        WHERE n.id IS NULL)"},
};

void checkTree(Transaction& transaction, FsckReport& report)
{
    report.items =
        static_cast<std::uint64_t>(transaction.value<std::int64_t>("SELECT COUNT(*) FROM nodes").value());
    for (const auto& rule : treeRules)
        for (const auto& [id, name] : transaction.rows<std::int64_t, std::string>(rule.query))
            report.problems.push_back("\"" + name + "\" (" + std::to_string(id) + ") " + rule.problem + ".");
}

/// Reads the whole content; says what is wrong with it, or nothing.
std::string contentProblem(ContentBytes& content, const StoredContent& expected, std::uint64_t& bytes)
{
    static constexpr std::size_t pieceBytes = 1 << 18;
    std::vector<char> piece(pieceBytes);
    Sha256 digest;
    std::int64_t size = 0;
    try {
        while (const auto got = content.read(piece.data(), piece.size())) {
            digest.update(piece.data(), got);
            size += static_cast<std::int64_t>(got);
        }
    } catch (const ServiceError&) {
        return "its content cannot be read";
    }
    bytes += static_cast<std::uint64_t>(size);
    if (size != expected.size)
        return "its content has " + std::to_string(size) + " bytes instead of " +
               std::to_string(expected.size);
    return digest.finish() == expected.sha256 ? "" : "its content is damaged (SHA-256 differs)";
}

void checkContents(Engine& engine, FsckReport& report)
{
    const auto rows = engine.database.read([](Transaction& transaction) {
        return transaction.rows<std::string, std::int64_t, std::string>(
            "SELECT DISTINCT content, size, sha256 FROM versions");
    });
    for (const auto& [id, size, sha256] : rows) {
        auto content = engine.contents.open(id);
        if (!content) continue; // deleted since, or missing, which the comparison has told
        ++report.contents;
        const auto problem = contentProblem(content, {id, size, sha256}, report.bytes);
        if (problem.empty()) continue;
        for (const auto& version : describeContent(engine, id))
            report.problems.push_back(version + ": " + problem + " (" + id + ").");
    }
}

/// A service takes deleted contents off the disk a little after their rows. One that stays is left over.
void forgetThoseOnTheirWayOut(const Engine& engine, std::vector<std::string>& orphans)
{
    constexpr std::chrono::milliseconds pause{50};
    constexpr std::chrono::seconds patience{10};
    for (const auto end = std::chrono::steady_clock::now() + patience;
         !orphans.empty() && std::chrono::steady_clock::now() < end; std::this_thread::sleep_for(pause))
        std::erase_if(orphans, [&](const auto& id) { return !engine.contents.has(id); });
}

void compareAll(Engine& engine, bool isBesideOthers, FsckReport& report)
{
    engine.database.read([&](Transaction& transaction) { checkTree(transaction, report); });
    auto check = compareContents(engine);
    if (isBesideOthers) forgetThoseOnTheirWayOut(engine, check.orphans);
    report.problems.insert(report.problems.end(), check.missing.begin(), check.missing.end());
    for (const auto& id : check.orphans)
        report.problems.push_back("No version names the content " + id + ".");
    for (const auto& stranger : engine.contents.strangers())
        report.problems.push_back("The file " + stranger + " lies among the contents but is not one.");
    checkContents(engine, report);
}

} // namespace

FsckReport fsck(Engine engine, bool isBesideOthers)
{
    FsckReport report;
    report.problems = engine.database.selfCheck();
    const bool isDamaged = !report.problems.empty();
    try {
        compareAll(engine, isBesideOthers, report);
    } catch (const ServiceError&) { // a damaged database may not tell what else there is to compare
        if (!isDamaged) throw;
    }
    return report;
}

} // namespace tarnd
