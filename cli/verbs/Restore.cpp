#include "cli/remote/Answer.h"
#include "cli/remote/FileContent.h"
#include "cli/remote/Recorded.h"
#include "cli/remote/Requests.h"
#include "cli/remote/VersionChoice.h"
#include "cli/verbs/Verb.h"
#include "tarn/versioning/VersionMessages.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;

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

void makeCurrent(const Invocation& invocation, const Options& options)
{
    const auto file = addressable(options.path);
    auto connection = invocation.connect();
    // The service would look in the user's own storage and restore a file of the same name there.
    requireOwnBucket(connection, file);
    const auto version = chooseVersion(connection, file, options.version);
    std::unique_ptr<VersionRestoreResponse> restored;
    naming(file, [&] {
        Change change{Change::Kind::restore, file.stored()};
        change.before = currentOf(connection, file).version;
        if (!options.asNew) change.after = version.versionId;
        recorded(connection, change, [&] {
            restored = connection.call([&] {
                auto request = requestFor<VersionRestore>(file);
                request->versionId = version.versionId;
                request->versionLabel = version.versionLabel;
                request->createNewVersion = options.asNew;
                return connection.versioning().restoreVersion(std::move(request));
            });
            const bool toldNew = !options.asNew || restored->versionId != version.versionId;
            requireConfirmed(toldNew && restored->versionLabel > 0,
                             "the version that is now the current one");
            return versionNow(connection, file, restored->versionId);
        });
    });
    invocation.out.message("Version " + std::to_string(restored->versionLabel) + " of " + file.quoted() +
                           " is now the current one.");
    invocation.out.result(
        "", {{"path", file.text()}, {"label", restored->versionLabel}, {"id", restored->versionId}});
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
