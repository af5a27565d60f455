#include "cli/remote/Requests.h"
#include "cli/terminal/Quantities.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/Upload.h"
#include "cli/verbs/Verb.h"

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
    unsigned jobs = defaultJobs;
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

/// The name that a source gets in a folder; empty for "." and its like, whose content goes there.
std::string nameOf(const Source& source)
{
    auto name = source.path.filename().string();
    if (name.empty()) name = source.path.parent_path().filename().string();
    return name == "." || name == ".." ? "" : name;
}

/// Where the sources go.
class Target {
public:
    Target(Connection& openConnection, const std::string& place)
        : connection(openConnection), remote(addressable(place)), found(findAttributes(connection, remote))
    {
        if (remote.asFolder && found && !isFolder())
            throw Failure(ExitCode::conflict, remote.quoted() + " is a file; leave out the '/' at the end.");
    }

    bool isFolder() const { return found && tarncli::isFolder(*found); }

    /// @throws Failure unless the target is a folder that is there
    void requireFolder() const
    {
        if (!found)
            throw Failure(ExitCode::notFound,
                          "There is no folder " + remote.quoted() + "; make it with `tarn mkdir -p`.");
        if (!isFolder())
            throw Failure(ExitCode::conflict, remote.quoted() + " is a file; several sources need a folder.");
    }

    struct Place {
        RemotePath remote;
        std::optional<connector::tarn::FileAttributes> found;
    };

    Place placeFor(const std::string& name) const
    {
        if (!isFolder()) return {remote, found};
        if (name.empty()) return {remote, found};
        if (const auto why = whyNotAddressable(name); !why.empty())
            throw usageError("\"" + escaped(name) + "\" cannot be stored under its name: " + why);
        const auto place = remote.child(name);
        return {place, findAttributes(connection, place)};
    }

    const RemotePath& path() const { return remote; }

private:
    Connection& connection;
    RemotePath remote;
    std::optional<connector::tarn::FileAttributes> found;
};

void addSource(Uploader& uploader, const Target& target, const Source& source)
{
    const auto place = target.placeFor(nameOf(source));
    if (source.isFolder) {
        if (place.found && !isFolder(*place.found))
            throw Failure(ExitCode::conflict,
                          place.remote.quoted() + " is a file; a folder cannot replace it.");
        return uploader.addTree(source.path, place.remote, place.found.has_value());
    }
    if (place.found && isFolder(*place.found))
        throw Failure(ExitCode::conflict, place.remote.quoted() + " is a folder; a file cannot replace it.");
    std::error_code error;
    const auto size = fs::file_size(source.path, error);
    Upload upload{source.path, place.remote, error ? 0 : size};
    if (place.found) upload.watermark = place.found->watermark;
    uploader.add(std::move(upload));
}

void show(Output& out, const UploadReport& report, const RemotePath& target)
{
    const auto& transfers = report.transfers;
    auto text = "Stored " + counted(report.files, "file");
    if (report.folders > 0) text += " and " + counted(report.folders, "folder");
    if (report.files + report.folders > 0)
        out.message(text + " (" + humanSize(report.bytes) + ") at " + target.quoted() + ".");
    out.result("", {{"files", report.files},
                    {"folders", report.folders},
                    {"bytes", report.bytes},
                    {"target", target.text()},
                    {"skipped", report.skipped},
                    {"failed", toJson(transfers.failed)},
                    {"notTried", transfers.notStarted}});
}

void putStandardInput(Connection& connection, Output& out, const Target& target, Existing existing)
{
    if (target.path().asFolder || target.isFolder())
        throw usageError(target.path().quoted() + " is a folder; name the file that standard input becomes.");
    const auto place = target.placeFor("");
    UploadReport report;
    if (place.found && existing == Existing::skip) {
        report.skipped.push_back("-");
    } else {
        uploadStandardInput(connection, place.remote, existing, place.found.has_value(), report.bytes);
        report.files = 1;
    }
    show(out, report, place.remote);
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
    const Target target(connection, options.places.back());
    if (fromInput) return putStandardInput(connection, out, target, existing);
    const bool intoFolder = sources.size() > 1 || (target.path().asFolder && !sources.front().isFolder);
    if (intoFolder) target.requireFolder();
    Uploader uploader(connection, out, existing);
    for (const auto& source : sources)
        addSource(uploader, target, source);
    const auto report = uploader.run();
    show(out, report, target.path());
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
                        "  tarn put -r -j 8 photos /photos\n"
                        "  pg_dump app | tarn put - /backup.sql",
            .takes = {{"PLACE",
                       &options->places,
                       "LOCAL... REMOTE; LOCAL - is standard input",
                       {.required = true}},
                      {"-r,--recursive", &options->recursive, "Include folders and everything in them"},
                      {"-f,--force", &options->force, "Replace the content of files that exist"},
                      {"--new-version", &options->newVersion, "Keep the old content as a version"},
                      {"--skip-existing", &options->skipExisting, "Leave files that exist as they are"},
                      jobsOption(options->jobs)},
            .run = [options](const Invocation& invocation) { store(invocation, *options); }};
}

} // namespace verbs

} // namespace tarncli
