#include "tarnd/store/Schema.h"

#include "tarnd/store/Database.h"
#include "tarnd/store/Dialect.h"
#include "tarnd/store/FileSystem.h"
#include "tarnd/store/UniqueFd.h"

#include <Poco/String.h>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace tarnd {

namespace {

constexpr std::int64_t schemaVersion = 5;

/// Times are milliseconds since 1970, UTC. Text is compared byte by byte.
///
/// nodes.current is not a foreign key: node and first version would refer to each other. nodes.revision counts the
/// changes that a watermark shows, versions.revision those of a content under one id. A content may stand in
/// several versions of one file (a restored copy), never in two files. grants.subject is a name, because it may be
/// granted to before the user exists. handles keep parent and name of the file as of the opening; node is 0 for a
/// file still to be created. users.quota is in bytes, 0 for none; users.used what all versions of the user have.
/// links.expires is 0 for a link that does not end. sessions.address is where the session was begun from, NULL where
/// that is not known.
constexpr const char* tables[] = {
    R"(CREATE TABLE meta (
        name  {text} PRIMARY KEY,
        value {text} NOT NULL))",

    R"(CREATE TABLE users (
        id      {id},
        name    {text} NOT NULL UNIQUE,
        token   {text} NOT NULL UNIQUE,
        created BIGINT NOT NULL,
        disabled BIGINT NOT NULL DEFAULT 0,
        quota   BIGINT NOT NULL DEFAULT 0,
        used    BIGINT NOT NULL DEFAULT 0))",

    R"(CREATE TABLE sessions (
        id      {text} PRIMARY KEY,
        account BIGINT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
        used    BIGINT NOT NULL,
        address {text}))",
    "CREATE INDEX sessions_account ON sessions(account)",
    "CREATE INDEX sessions_used ON sessions(used)",
    "CREATE INDEX sessions_address ON sessions(address)",

    R"(CREATE TABLE nodes (
        id       {id},
        owner    BIGINT NOT NULL REFERENCES users(id),
        parent   BIGINT REFERENCES nodes(id),
        name     {text} NOT NULL,
        kind     BIGINT NOT NULL,
        created  BIGINT NOT NULL,
        modified BIGINT NOT NULL,
        revision BIGINT NOT NULL DEFAULT 0,
        current  {text} NOT NULL DEFAULT '',
        UNIQUE (parent, name)))",
    "CREATE UNIQUE INDEX nodes_root ON nodes(owner) WHERE parent IS NULL",

    R"(CREATE TABLE versions (
        id      {text} PRIMARY KEY,
        node    BIGINT NOT NULL REFERENCES nodes(id) ON DELETE CASCADE,
        label   BIGINT NOT NULL,
        created BIGINT NOT NULL,
        size    BIGINT NOT NULL,
        sha256  {text} NOT NULL,
        content {text} NOT NULL,
        revision BIGINT NOT NULL DEFAULT 0,
        UNIQUE (node, label)))",
    "CREATE INDEX versions_content ON versions(content)",

    R"(CREATE TABLE grants (
        id      {text} PRIMARY KEY,
        node    BIGINT NOT NULL REFERENCES nodes(id) ON DELETE CASCADE,
        subject {text} NOT NULL,
        UNIQUE (node, subject)))",
    "CREATE INDEX grants_subject ON grants(subject)",

    R"(CREATE TABLE links (
        token   {text} PRIMARY KEY,
        node    BIGINT NOT NULL REFERENCES nodes(id) ON DELETE CASCADE,
        expires BIGINT NOT NULL,
        UNIQUE (node, expires)))",

    R"(CREATE TABLE handles (
        id      {text} PRIMARY KEY,
        session {text} NOT NULL REFERENCES sessions(id) ON DELETE CASCADE,
        parent  BIGINT NOT NULL,
        name    {text} NOT NULL,
        node    BIGINT NOT NULL,
        mode    BIGINT NOT NULL,
        changes BIGINT NOT NULL))",
    "CREATE INDEX handles_session ON handles(session)",
};

/// The statement with the types of the engine.
std::string inTypesOf(const Dialect& dialect, const std::string& statement)
{
    return Poco::replace(Poco::replace(statement, "{id}", dialect.idType().c_str()), "{text}",
                         dialect.textType().c_str());
}

void createTables(Transaction& transaction, const Dialect& dialect)
{
    for (const auto* table : tables)
        transaction.run(inTypesOf(dialect, table));
    transaction.run("INSERT INTO meta (name, value) VALUES ('schema', $1)", std::to_string(schemaVersion));
}

/// A statement on the way from the version before to this one.
struct Upgrade {
    std::int64_t version;
    const char* statement;
};

constexpr Upgrade upgrades[] = {
    {2, "ALTER TABLE versions ADD COLUMN revision BIGINT NOT NULL DEFAULT 0"},
    {3, "ALTER TABLE users ADD COLUMN disabled BIGINT NOT NULL DEFAULT 0"},
    {3, "ALTER TABLE users ADD COLUMN quota BIGINT NOT NULL DEFAULT 0"},
    {3, "ALTER TABLE users ADD COLUMN used BIGINT NOT NULL DEFAULT 0"},
    {3, R"(UPDATE users SET used = sums.bytes
           FROM (SELECT n.owner, SUM(v.size) AS bytes FROM versions v JOIN nodes n ON n.id = v.node
                 GROUP BY n.owner) AS sums
           WHERE sums.owner = users.id)"},
    // A constraint that goes would have another name in each engine: a table takes the place of the other.
    {4, R"(CREATE TABLE ending_links (
        token   {text} PRIMARY KEY,
        node    BIGINT NOT NULL REFERENCES nodes(id) ON DELETE CASCADE,
        expires BIGINT NOT NULL,
        UNIQUE (node, expires)))"},
    {4, "INSERT INTO ending_links (token, node, expires) SELECT token, node, 0 FROM links"},
    {4, "DROP TABLE links"},
    {4, "ALTER TABLE ending_links RENAME TO links"},
    {5, "ALTER TABLE sessions ADD COLUMN address {text}"},
    {5, "CREATE INDEX sessions_address ON sessions(address)"},
};
static_assert(upgrades[std::size(upgrades) - 1].version == schemaVersion);

std::int64_t versionOf(Transaction& transaction)
{
    const auto version = transaction.value<std::string>("SELECT value FROM meta WHERE name = 'schema'");
    if (!version) throw sentences::internal.because("the table meta has no row \"schema\"");
    return std::stoll(*version);
}

/// Under the write lock, so that it is of the moment before. Under its own name only once it is on the disk.
void keepCopy(const Dialect& dialect, const std::filesystem::path& folder)
{
    if (dialect.hasManyWriters()) return; // a server of its own, whose operators make their copies there
    const auto fresh = folder / "tarn.db.before-upgrade.new", copy = folder / "tarn.db.before-upgrade";
    std::filesystem::remove(fresh);
    dialect.copyTo(fresh);
    const UniqueFd file(::open(fresh.c_str(), O_RDONLY | O_CLOEXEC));
    if (!file || ::fsync(file.get()) != 0) throw systemError(fresh);
    std::filesystem::rename(fresh, copy);
    syncFolder(folder);
    std::fprintf(stderr, "tarnd: the database is brought up to date; as it was it stays in %s\n",
                 copy.c_str());
}

void upgrade(Transaction& transaction, const Dialect& dialect, const std::filesystem::path& folder)
{
    const auto before = versionOf(transaction);
    if (before == schemaVersion) return; // another process was faster
    keepCopy(dialect, folder);
    for (const auto& [version, statement] : upgrades)
        if (version > before) transaction.run(inTypesOf(dialect, statement));
    transaction.run("UPDATE meta SET value = $1 WHERE name = 'schema'", std::to_string(schemaVersion));
}

bool hasTables(Transaction& transaction, const Dialect& dialect)
{
    return transaction.value<std::int64_t>(dialect.tableCount(), std::string("meta")) == 1;
}

} // namespace

/// Whoever finds no tables looks again under the write lock: another process may be making them.
void prepareSchema(Database& database, const std::filesystem::path& folder)
{
    const auto& dialect = database.dialect();
    if (!database.read([&](Transaction& transaction) { return hasTables(transaction, dialect); }))
        database.write([&](Transaction& transaction) {
            if (!hasTables(transaction, dialect)) createTables(transaction, dialect);
        });
    const auto version = database.read(versionOf);
    if (version > schemaVersion) throw sentences::newerSchema();
    if (version < schemaVersion)
        database.write([&](Transaction& transaction) { upgrade(transaction, dialect, folder); });
}

} // namespace tarnd
