#include "cli/remote/Requests.h"
#include "cli/remote/VersionChoice.h"
#include "cli/terminal/Quantities.h"
#include "cli/terminal/Table.h"
#include "cli/verbs/Verbs.h"
#include "tarn/versioning/VersionMessages.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

using namespace connector::tarn;

void versions(const Invocation& invocation, const PathOptions& options)
{
    const auto file = addressable(options.path);
    auto connection = invocation.connect();
    requireOwnBucket(connection, file);
    const auto response = naming(file, [&] {
        return connection.call(
            [&] { return connection.versioning().listVersions(requestFor<VersionList>(file)); });
    });
    using enum Table::Align;
    Table table({right, left, left}, {"VERSION", "CREATED", "ID"});
    auto documents = nlohmann::json::array();
    for (const auto& version : response->versions) {
        table.add({std::to_string(version.versionLabel), humanTime(version.created), version.versionId});
        documents.push_back(
            {{"label", version.versionLabel}, {"created", version.created}, {"id", version.versionId}});
    }
    invocation.out.result(table.text(),
                          {{"path", file.text()}, {"name", toUtf8(response->name)}, {"versions", documents}});
}

void restore(const Invocation& invocation, const RestoreOptions& options)
{
    const auto file = addressable(options.path);
    auto connection = invocation.connect();
    requireOwnBucket(connection, file);
    const auto version = chooseVersion(connection, file, options.version);
    const auto restored = naming(file, [&] {
        return connection.call([&] {
            auto request = requestFor<VersionRestore>(file);
            request->versionId = version.versionId;
            request->versionLabel = version.versionLabel;
            request->createNewVersion = options.asNew;
            return connection.versioning().restoreVersion(std::move(request));
        });
    });
    invocation.out.message("Version " + std::to_string(restored->versionLabel) + " of " + file.quoted() +
                           " is now the current one.");
    invocation.out.result(
        "", {{"path", file.text()}, {"label", restored->versionLabel}, {"id", restored->versionId}});
}

} // namespace tarncli::verbs
