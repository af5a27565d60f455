#include "cli/remote/FileAbove.h"
#include "cli/remote/Requests.h"
#include "cli/remote/StoredNames.h"
#include "cli/terminal/Quantities.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/LocalTree.h"
#include "cli/transfer/Upload.h"
#include "cli/transfer/UploadSummary.h"
#include "cli/transfer/UploadTarget.h"
#include "cli/verbs/Verb.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tarncli {

namespace {

namespace fs = std::filesystem;

struct PutOptions {
    std::vector<std::string> places; ///< local sources, then the remote target
    bool recursive = false;
    bool force = false;
    bool newVersion = false;
    bool skipExisting = false;
    unsigned jobs = 0; ///< 0: not told
};

Existing existingOf(const PutOptions& options)
{
    if (options.force + options.newVersion + options.skipExisting > 1)
        throw usageError("Choose one of --force, --new-version and --skip-existing.");
    if (options.force) return Existing::replace;
    if (options.newVersion) return Existing::addVersion;
    return options.skipExisting ? Existing::skip : Existing::refuse;
}

struct Source {
    fs::path path;
    bool isFolder = false;
};

Source sourceOf(const std::string& place, bool recursive)
{
    requireLocalPath(place);
    std::error_code error;
    const auto status = fs::status(place, error);
    if (!fs::exists(status))
        throw Failure(ExitCode::notFound, "There is no local file " + escaped(place) + ".");
    Source source{place, fs::is_directory(status)};
    if (source.isFolder && !recursive)
        throw usageError(escaped(place) +
                         " is a folder; use `tarn put -r` to store it and everything in it.");
    return source;
}

/// The name that a source gets below the target; empty for one that was written with '/' at the end, and for "." and
/// its like, whose contents go there.
std::string nameOf(const Source& source)
{
    const auto name = source.path.filename().string();
    return name == "." || name == ".." ? "" : encodedName(name);
}

void addSource(Uploader& uploader, const UploadTarget::Place& place, const Source& source)
{
    if (source.isFolder) {
        auto tree = walkLocalTree(source.path);
        for (auto& entry : tree.entries)
            entry.below = encodedName(entry.below);
        return uploader.addTree(std::move(tree), place.remote, place.folder());
    }
    std::error_code error;
    const auto size = fs::file_size(source.path, error);
    Upload upload{source.path, place.remote, error ? 0 : size};
    if (place.found) upload.existing = {place.found->watermark, place.found->size};
    uploader.add(std::move(upload));
}

void putStandardInput(Connection& connection, Output& out, const UploadTarget& target, Existing existing)
{
    if (target.path().asFolder || target.isFolder())
        throw usageError(target.path().quoted() + " is a folder; name the file that standard input becomes.");
    const auto place = target.placeFor("", false);
    UploadReport report;
    if (place.found && existing == Existing::skip) {
        report.skipped.push_back("-");
    } else {
        try {
            uploadStandardInput(connection, place.remote, existing, place.found.has_value(), report.bytes);
        } catch (const Failure& failure) {
            throw withFileAbove(connection, place.remote, failure);
        }
        report.files = 1;
    }
    showUploads(out, report, place.remote, "as ", "Stored");
}

void store(const Invocation& invocation, const PutOptions& options)
{
    auto& out = invocation.out;
    const auto existing = existingOf(options);
    const std::vector<std::string> places(options.places.begin(), options.places.end() - 1);
    if (places.empty()) throw usageError("Name what to store and where: `tarn put LOCAL… REMOTE`.");
    addressable(options.places.back());
    const bool fromInput = places.front() == "-" && places.size() == 1;
    std::vector<Source> sources;
    if (!fromInput)
        for (const auto& place : places)
            sources.push_back(sourceOf(place, options.recursive));

    auto connection = invocation.connect(options.jobs);
    UploadTarget target(connection, options.places.back());
    if (fromInput) return putStandardInput(connection, out, target, existing);
    Uploader uploader(connection, out, existing);
    if (std::ranges::any_of(sources, &Source::isFolder))
        target.makeFor(uploader);
    else if (sources.size() > 1 || target.path().asFolder)
        target.requireFolder();
    RemotePath told = target.path();
    for (const auto& source : sources) {
        const auto place = target.placeFor(nameOf(source), source.isFolder);
        addSource(uploader, place, source);
        if (sources.size() == 1) told = place.remote;
    }
    auto report = uploader.run();
    for (auto& [what, failure, isTold] : report.transfers.failed)
        if (!isTold) failure = withFileAbove(connection, told, failure);
    showUploads(out, report, told, sources.size() > 1 || sources.front().isFolder ? "in " : "as ", "Stored");
    conclude(report.transfers, "stored");
}

} // namespace

namespace verbs {

Verb put()
{
    const auto options = std::make_shared<PutOptions>();
    return {.name = "put",
            .summary = "Store files",
            .examples = "  tarn put notes.md /notes.md\n"
                        "  tarn put a.txt b.txt /docs/\n"
                        "  tarn put -r photos /                 the folder: becomes /photos\n"
                        "  tarn put -r -j 8 photos/ /album      its contents: become those of /album\n"
                        "  pg_dump app | tarn put - /backup.sql",
            .notes = "A target folder that is missing is made for a folder. A file that is there already "
                     "with the same content (size and SHA-256) is left as it is, so that a command that "
                     "was interrupted can be repeated; one with another content is replaced only when an "
                     "option says so.",
            .takes = {{"PLACE",
                       &options->places,
                       "LOCAL... REMOTE; LOCAL - is standard input",
                       {.required = true, .words = Words::localThenRemote}},
                      {"-r,--recursive", &options->recursive, "Include folders and everything in them"},
                      {"-f,--force", &options->force, "Replace the content of files that exist"},
                      {"--new-version", &options->newVersion, "Keep the old content as a version"},
                      {"--skip-existing", &options->skipExisting, "Leave files that exist as they are"},
                      jobsOption(options->jobs)},
            .run = [options](const Invocation& invocation) { store(invocation, *options); }};
}

} // namespace verbs

} // namespace tarncli
