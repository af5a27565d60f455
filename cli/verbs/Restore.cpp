#include "cli/remote/Answer.h"
#include "cli/remote/Change.h"
#include "cli/remote/FileContent.h"
#include "cli/remote/Recorded.h"
#include "cli/remote/Requests.h"
#include "cli/remote/VersionChoice.h"
#include "cli/verbs/Verb.h"
#include "tarn/versioning/VersionMessages.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;
using connector::Future;

struct Options {
    std::string path;
    std::string version;
    bool asNew = false;
};

/// As `tarn undo` compares it: with what tells whether that version was replaced in place.
std::string versionNow(Connection& connection, const RemotePath& file, const std::string& id)
{
    try {
        const auto version = currentOf(connection, file).version;
        return version.empty() ? id : version;
    } catch (const std::exception&) { // it was restored all the same
        return id;
    }
}

struct Restoring {
    RemotePath file;
    VersionInfo version;
    bool asNew = false;
    std::string before; ///< the version that was current, as CurrentContent has it
};

bool hasContentOf(Connection& connection, const Restoring& wanted, const CurrentContent& now)
{
    if (sizeOf(connection, wanted.file, wanted.version) != now.size) return false;
    return now.size == 0 || connection.call([&] {
        return requestDigest(connection, wanted.file, wanted.version);
    }) == now.sha256;
}

/// What was restored although no reply said so; nothing: it was not. @throws when nobody can tell
std::optional<VersionRestoreResponse> lookFor(Connection& connection, const Restoring& wanted)
{
    const auto now = currentOf(connection, wanted.file);
    const bool isIt = !wanted.asNew && isVersion(now.version, wanted.version.versionId);
    if (!isIt && !now.version.empty() && now.version == wanted.before) return {};
    const auto list = versionsOf(connection, wanted.file);
    const auto current = std::ranges::find_if(
        list->versions, [&](const auto& each) { return isVersion(now.version, each.versionId); });
    if (current == list->versions.end() || !(isIt || (wanted.asNew && hasContentOf(connection, wanted, now))))
        throw Failure(ExitCode::conflict, wanted.file.quoted() + " has changed meanwhile.");
    VersionRestoreResponse restored;
    restored.versionId = current->versionId;
    restored.versionLabel = current->versionLabel;
    return restored;
}

VersionRestoreResponse restoreVersion(Connection& connection, const Restoring& wanted)
{
    VersionRestoreResponse restored;
    const auto send = [&] {
        auto request = requestFor<VersionRestore>(wanted.file);
        request->versionId = wanted.version.versionId;
        request->versionLabel = wanted.version.versionLabel;
        request->createNewVersion = wanted.asNew;
        return connection.versioning()
            .restoreVersion(std::move(request))
            .then([&restored](Future<std::unique_ptr<VersionRestoreResponse>>&& reply) {
                restored = *reply.get();
                return true;
            });
    };
    makeChange(connection, send, [&] {
        const auto found = lookFor(connection, wanted);
        if (found) restored = *found;
        return found.has_value();
    });
    return restored;
}

void makeCurrent(const Invocation& invocation, const Options& options)
{
    const auto file = addressable(options.path);
    auto connection = invocation.connect();
    // The service would look in the user's own storage and restore a file of the same name there.
    requireOwnBucket(connection, file);
    const auto version = chooseVersion(connection, file, options.version);
    VersionRestoreResponse restored;
    naming(file, [&] {
        Change change{Change::Kind::restore, file.stored()};
        change.before = currentOf(connection, file).version;
        if (!options.asNew) change.after = version.versionId;
        recorded(connection, change, [&] {
            restored = restoreVersion(connection, {file, version, options.asNew, change.before});
            const bool toldNew = !options.asNew || restored.versionId != version.versionId;
            requireConfirmed(toldNew && restored.versionLabel > 0, "the version that is now the current one");
            return versionNow(connection, file, restored.versionId);
        });
    });
    invocation.out.message("Version " + std::to_string(restored.versionLabel) + " of " + file.quoted() +
                           " is now the current one.");
    invocation.out.result(
        "", {{"path", file.text()}, {"label", restored.versionLabel}, {"id", restored.versionId}});
}

} // namespace

Verb restore()
{
    const auto options = std::make_shared<Options>();
    return {.name = "restore",
            .summary = "Make an earlier version the current one",
            .examples = "  tarn restore /notes.md 2\n"
                        "  tarn restore --as-new /notes.md 2",
            .takes = {{"PATH", &options->path, "File", {.required = true, .words = Words::remote}},
                      {"VERSION", &options->version, "Number or id of the version", {.required = true}},
                      {"--as-new", &options->asNew, "Add a copy of it as the newest version"}},
            .run = [options](const Invocation& invocation) { makeCurrent(invocation, *options); }};
}

} // namespace tarncli::verbs
