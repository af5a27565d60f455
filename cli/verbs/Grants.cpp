#include "cli/remote/Grants.h"
#include "cli/remote/RemotePath.h"
#include "cli/terminal/Table.h"
#include "cli/terminal/Text.h"
#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using nlohmann::json;

void listAll(const Invocation& invocation, const std::string& path)
{
    if (!path.empty()) RemotePath::parse(path); // refused before a connection is made
    auto connection = invocation.connect();
    using enum Table::Align;
    Table table({left, left, left, left, left}, {"ID", "USER", "ACCESS", "STATUS", "PATH"});
    auto documents = json::array();
    for (const auto& grant : listGrants(connection, path)) {
        const auto user = toUtf8(grant.subjectName);
        const auto item = toUtf8(grant.path);
        table.add({grant.permissionId, user, grant.operation, grant.status, item});
        documents.push_back({{"id", grant.permissionId},
                             {"user", user},
                             {"operation", grant.operation},
                             {"status", grant.status},
                             {"path", item},
                             {"bucket", toUtf8(grant.bucket)}});
    }
    invocation.out.list(table.text(), "grants", documents);
}

} // namespace

Verb grants()
{
    const auto path = std::make_shared<std::string>();
    return {.name = "grants",
            .summary = "List what you let others read",
            .examples = "  tarn grants\n"
                        "  tarn grants /docs",
            .takes = {{"PATH", path.get(), "File or folder; default: all"}},
            .run = [path](const Invocation& invocation) { listAll(invocation, *path); }};
}

} // namespace tarncli::verbs
