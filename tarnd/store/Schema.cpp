#include "tarnd/store/Schema.h"

#include "tarnd/store/Database.h"
#include "tarnd/store/Dialect.h"

#include <Poco/String.h>

namespace tarnd {

namespace {

constexpr std::int64_t schemaVersion = 1;

/// Times are milliseconds since 1970, UTC. Text is compared byte by byte.
///
/// nodes.current is not a foreign key: node and first version would refer to each other.
/// nodes.revision counts the changes that a watermark shows. A content may stand in several versions of one
/// file (a restored copy), never in two files. grants.subject is a name, because it may be granted to before
/// the user exists. handles keep parent and name of the file as of the opening; node is 0 for a file still to
/// be created.
constexpr const char* tables[] = {
    R"(CREATE TABLE IF NOT EXISTS meta (
        name  {text} PRIMARY KEY,
        value {text} NOT NULL))",

    R"(CREATE TABLE IF NOT EXISTS users (
        id      {id},
        name    {text} NOT NULL UNIQUE,
        token   {text} NOT NULL UNIQUE,
        created BIGINT NOT NULL))",

    R"(CREATE TABLE IF NOT EXISTS sessions (
        id      {text} PRIMARY KEY,
        account BIGINT NOT NULL REFERENCES users(id) ON DELETE CASCADE,
        used    BIGINT NOT NULL))",
    "CREATE INDEX IF NOT EXISTS sessions_account ON sessions(account)",
    "CREATE INDEX IF NOT EXISTS sessions_used ON sessions(used)",

    R"(CREATE TABLE IF NOT EXISTS nodes (
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
    "CREATE UNIQUE INDEX IF NOT EXISTS nodes_root ON nodes(owner) WHERE parent IS NULL",

    R"(CREATE TABLE IF NOT EXISTS versions (
        id      {text} PRIMARY KEY,
        node    BIGINT NOT NULL REFERENCES nodes(id) ON DELETE CASCADE,
        label   BIGINT NOT NULL,
        created BIGINT NOT NULL,
        size    BIGINT NOT NULL,
        sha256  {text} NOT NULL,
        content {text} NOT NULL,
        UNIQUE (node, label)))",
    "CREATE INDEX IF NOT EXISTS versions_content ON versions(content)",

    R"(CREATE TABLE IF NOT EXISTS grants (
        id      {text} PRIMARY KEY,
        node    BIGINT NOT NULL REFERENCES nodes(id) ON DELETE CASCADE,
        subject {text} NOT NULL,
        UNIQUE (node, subject)))",
    "CREATE INDEX IF NOT EXISTS grants_subject ON grants(subject)",

    R"(CREATE TABLE IF NOT EXISTS links (
        token {text} PRIMARY KEY,
        node  BIGINT NOT NULL UNIQUE REFERENCES nodes(id) ON DELETE CASCADE))",

    R"(CREATE TABLE IF NOT EXISTS handles (
        id      {text} PRIMARY KEY,
        session {text} NOT NULL REFERENCES sessions(id) ON DELETE CASCADE,
        parent  BIGINT NOT NULL,
        name    {text} NOT NULL,
        node    BIGINT NOT NULL,
        mode    BIGINT NOT NULL,
        changes BIGINT NOT NULL))",
    "CREATE INDEX IF NOT EXISTS handles_session ON handles(session)",
};

} // namespace

void prepareSchema(Database& database)
{
    const auto& dialect = database.dialect();
    database.write([&](Transaction& transaction) {
        for (const std::string table : tables)
            transaction.run(Poco::replace(Poco::replace(table, "{id}", dialect.idType().c_str()), "{text}",
                                          dialect.textType().c_str()));
        const auto version = transaction.value<std::string>("SELECT value FROM meta WHERE name = 'schema'");
        if (!version)
            transaction.run("INSERT INTO meta (name, value) VALUES ('schema', $1)",
                            std::to_string(schemaVersion));
        else if (std::stoll(*version) > schemaVersion)
            throw sentences::newerSchema();
    });
}

} // namespace tarnd
