#include "cli/remote/VersionChoice.h"

#include "cli/remote/Answer.h"
#include "cli/remote/Requests.h"

#include <algorithm>

namespace tarncli {

using namespace connector::tarn;

void requireOwnBucket(const Connection& connection, const RemotePath& file)
{
    if (file.bucket.empty() || file.bucket == connection.user()) return;
    throw usageError("The service lists the versions of your own files only, not those of " + file.quoted() +
                     ".");
}

std::unique_ptr<VersionListResponse> versionsOf(Connection& connection, const RemotePath& file)
{
    requireOwnBucket(connection, file);
    return naming(file, [&] {
        auto list = connection.call(
            [&] { return connection.versioning().listVersions(requestFor<VersionList>(file)); });
        requireTold(!list->name.empty(), "the name of the file");
        for (const auto& version : list->versions)
            // With an empty id the current content would be read in place of the version.
            requireTold(!version.versionId.empty() && version.versionLabel != 0,
                        "the id or number of a version");
        return list;
    });
}

bool isVersion(const std::string& version, const std::string& id)
{
    return version == id || version.starts_with(id + "-");
}

VersionInfo chooseVersion(Connection& connection, const RemotePath& file, const std::string& text)
{
    // More digits do not fit into a label's 64 bits, and ids may consist of digits, too.
    const bool isLabel = text.size() < 18 && text.find_first_not_of("0123456789") == std::string::npos;
    if (!isLabel) return {text, 0};
    const auto list = versionsOf(connection, file);
    const auto label = std::stoll(text);
    for (const auto& version : list->versions)
        if (version.versionLabel == label) return {version.versionId, label};
    const auto byId = std::find_if(list->versions.begin(), list->versions.end(),
                                   [&](const VersionSummary& version) { return version.versionId == text; });
    if (byId != list->versions.end()) return {byId->versionId, byId->versionLabel};
    throw Failure(ExitCode::notFound,
                  file.quoted() + " has no version " + text + "; `tarn versions` lists them.");
}

} // namespace tarncli
