#include "cli/remote/Answer.h"
#include "cli/remote/Requests.h"
#include "cli/remote/StoredNames.h"
#include "cli/remote/VersionChoice.h"
#include "cli/terminal/Quantities.h"
#include "cli/terminal/Table.h"
#include "cli/verbs/Verb.h"
#include "tarn/versioning/VersionMessages.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;

void listVersions(const Invocation& invocation, const std::string& path)
{
    const auto file = addressable(path);
    auto connection = invocation.connect();
    const auto response = versionsOf(connection, file);
    using enum Table::Align;
    Table table({right, left, left}, {"VERSION", "CREATED", "ID"});
    auto documents = nlohmann::json::array();
    for (const auto& version : response->versions) {
        table.add({std::to_string(version.versionLabel), humanTime(version.created), version.versionId});
        documents.push_back(
            {{"label", version.versionLabel}, {"created", version.created}, {"id", version.versionId}});
    }
    invocation.out.list(table.text(), "versions", documents,
                        {{"path", file.text()}, {"name", decodedName(toUtf8(response->name))}});
}

} // namespace

Verb versions()
{
    const auto path = std::make_shared<std::string>();
    return {.name = "versions",
            .summary = "List the versions of a file",
            .examples = "  tarn versions /notes.md",
            .takes = {{"PATH", path.get(), "File", {.required = true, .words = Words::remote}}},
            .run = [path](const Invocation& invocation) { listVersions(invocation, *path); }};
}

} // namespace tarncli::verbs
