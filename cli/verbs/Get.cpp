#include "cli/remote/FileContent.h"
#include "cli/remote/Requests.h"
#include "cli/remote/StoredNames.h"
#include "cli/remote/VersionChoice.h"
#include "cli/remote/Wildcards.h"
#include "cli/terminal/Quantities.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/Download.h"
#include "cli/transfer/LocalTree.h"
#include "cli/verbs/Cat.h"
#include "cli/verbs/Verb.h"

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

namespace tarncli {

namespace {

using namespace connector::tarn;
namespace fs = std::filesystem;

constexpr int mostLinks = 40; ///< one behind the other, as for the kernel

struct GetOptions {
    std::vector<std::string> places; ///< remote sources, then the local target; one alone goes to "."
    std::string version;
    bool recursive = false;
    bool force = false;
    bool goOn = false;
    bool noTimes = false;
    unsigned jobs = 0; ///< 0: not told
};

/// When a version was stored; 0 for one that was named by an id that no list has.
std::uint64_t timeOf(Connection& connection, const RemotePath& file, const VersionInfo& version)
{
    if (!file.bucket.empty() && file.bucket != connection.user()) return 0;
    const auto list = versionsOf(connection, file);
    for (const auto& one : list->versions)
        if (one.versionId == version.versionId) return one.created;
    return 0;
}

/// The file that a link leads to, so that the link stays. The user has put it there, and named it.
fs::path behindLinks(fs::path place)
{
    std::error_code error;
    for (int links = 0; fs::is_symlink(place, error); ++links) {
        if (links == mostLinks) throw Failure(ExitCode::failure, escaped(place.string()) + " leads nowhere.");
        const auto next = fs::read_symlink(place, error);
        if (error) break;
        place = place.parent_path() / next;
    }
    if (fs::is_directory(place, error))
        throw Failure(ExitCode::conflict,
                      escaped(place.string()) + " is a folder; a file cannot replace it.");
    return place;
}

/// The local place that the user named, and what a remote item becomes there.
struct Target {
    fs::path path;
    bool isFolder = false;

    /// @param recursive  what is fetched may be a folder, for which the target is made
    Target(const std::string& place, bool severalSources, bool recursive)
        : path(place), isFolder(fs::is_directory(place))
    {
        const bool mustBeFolder = severalSources || place.ends_with('/');
        if (mustBeFolder && !isFolder && !(recursive && !fs::exists(path)))
            throw Failure(fs::exists(path) ? ExitCode::conflict : ExitCode::notFound,
                          "There is no local folder " + escaped(place) + "; make it first.");
        if (path.filename().empty() && path.has_parent_path())
            path = path.parent_path(); // without the last '/'
        becomesFolder = mustBeFolder;
    }

    void addFile(Downloader& downloader, const RemoteItem& source, const VersionInfo& version,
                 std::uint64_t size, std::uint64_t lastModified)
    {
        if (becomesFolder && !isFolder) makeFolder();
        if (!opened) opened = DownloadFolder::open(isFolder ? path : path.parent_path());
        auto folder = opened;
        auto name = isFolder ? decodedName(source.where.name()) : path.filename().string();
        // What only a listing has named never leads out of the folder.
        if (!source.known && folder->contains(name)) {
            const auto place = isFolder ? path / name : path;
            if (const auto behind = behindLinks(place); behind != place) {
                folder = DownloadFolder::open(behind.parent_path());
                name = behind.filename().string();
            }
        }
        downloader.add({source.where, version, size, lastModified, std::move(folder), std::move(name)});
    }

    /// `remote` goes below the target, or with '/' at the end its contents do.
    void addTree(Downloader& downloader, const RemotePath& remote)
    {
        if (!isFolder && fs::exists(path))
            throw Failure(ExitCode::conflict,
                          escaped(path.string()) + " is a file; a folder cannot replace it.");
        if (remote.asFolder || remote.isRoot()) return downloader.addTree(remote, path);
        if (!isFolder) makeFolder();
        downloader.addTree(remote, path / decodedName(remote.name()));
    }

    /// Where a single source goes, or all of several.
    fs::path placeOf(const RemotePath& remote, bool several) const
    {
        const bool below = isFolder && !several && !remote.asFolder && !remote.isRoot();
        return below ? path / decodedName(remote.name()) : path;
    }

private:
    void makeFolder()
    {
        DownloadFolder::make(path);
        isFolder = true;
    }

    bool becomesFolder = false;
    std::shared_ptr<const DownloadFolder> opened; ///< that files go into
};

void addSource(Connection& connection, Downloader& downloader, Target& target, const RemoteItem& source,
               const GetOptions& options)
{
    const auto& remote = source.where;
    const auto attributes = attributesOf(connection, source);
    if (!isFolder(attributes)) {
        VersionInfo version;
        if (options.version.empty())
            return target.addFile(downloader, source, version, attributes.size, attributes.lastModified);
        version = chooseVersion(connection, remote, options.version);
        const auto size = naming(remote, [&] { return sizeOf(connection, remote, version); });
        return target.addFile(downloader, source, version, size, timeOf(connection, remote, version));
    }
    if (!options.recursive)
        throw usageError(remote.quoted() +
                         " is a folder; use `tarn get -r` to fetch it and everything in it.");
    if (!options.version.empty())
        throw usageError("--version is for files; " + remote.quoted() + " is a folder.");
    target.addTree(downloader, remote);
}

void tell(Output& out, const DownloadReport& report, const std::string& place)
{
    const auto there =
        counted(report.unchanged, "file") + " " + wasOrWere(report.unchanged) + " there already";
    if (report.files + report.folders == 0) {
        const bool isWhole = report.transfers.failed.empty() && report.transfers.notStarted == 0;
        if (isWhole) out.message("Nothing to do at " + place + ": " + there + ".");
        return;
    }
    auto text = "Fetched " + counted(report.files, "file");
    if (report.folders > 0) text += " and " + counted(report.folders, "folder");
    text += " (" + humanSize(report.bytes) + ") to " + place;
    out.message(text + (report.unchanged > 0 ? "; " + there : "") + ".");
}

void show(Output& out, const DownloadReport& report, const fs::path& place)
{
    tell(out, report, escaped(place.string()));
    out.result("", {{"files", report.files},
                    {"folders", report.folders},
                    {"bytes", report.bytes},
                    {"unchanged", report.unchanged},
                    {"target", place.string()},
                    {"failed", toJson(report.transfers.failed)},
                    {"notTried", report.transfers.notStarted}});
}

void fetch(const Invocation& invocation, const GetOptions& options)
{
    auto sources = options.places;
    std::string place = ".";
    if (sources.size() > 1) {
        place = sources.back();
        sources.pop_back();
    }
    requireLocalPath(place);
    if (place == "-") return writeContents(invocation, sources, options.version);
    bool isPattern = false;
    for (const auto& source : sources)
        isPattern = isPattern || hasWildcards(addressableOrPattern(source));
    if (sources.size() > 1 || !isPattern) Target(place, sources.size() > 1, options.recursive);
    auto connection = invocation.connect(options.jobs);
    std::vector<RemoteItem> remotes;
    for (const auto& source : sources)
        std::ranges::move(expand(connection, source), std::back_inserter(remotes));
    Target target(place, remotes.size() > 1, options.recursive);
    Downloader downloader(connection, invocation.out,
                          {.overwrite = options.force ? Overwrite::replace : Overwrite::refuse,
                           .unfinished = options.goOn ? Unfinished::keep : Unfinished::remove,
                           .keepTimes = !options.noTimes});
    for (const auto& remote : remotes)
        addSource(connection, downloader, target, remote, options);
    const auto report = downloader.run();
    show(invocation.out, report, target.placeOf(remotes.front().where, remotes.size() > 1));
    conclude(report.transfers, "fetched");
}

} // namespace

namespace verbs {

Verb get()
{
    const auto options = std::make_shared<GetOptions>();
    return {
        .name = "get",
        .summary = "Fetch files",
        .examples = "  tarn get /notes.md .\n"
                    "  tarn get -r /photos .                the folder: becomes ./photos\n"
                    "  tarn get -r /photos/ album           its contents: become those of album\n"
                    "  tarn get '/photos/*.jpg' .           quoted, so that the shell leaves it alone\n"
                    "  tarn get --version 2 /notes.md old.md\n"
                    "  tarn get --continue /disk.img .\n"
                    "  tarn get /backup.sql - | psql app",
        .notes = "A target folder that is missing is made for a folder. A file that is there already "
                 "with the same content (size, and time or SHA-256) is left as it is, so that a "
                 "command that was interrupted can be repeated; one with another content is replaced "
                 "only with --force.",
        .takes =
            {{"PLACE",
              &options->places,
              "REMOTE... LOCAL; LOCAL - is standard output",
              {.required = true, .words = Words::remoteThenLocal}},
             {"-r,--recursive", &options->recursive, "Include folders and everything in them"},
             {"-f,--force", &options->force, "Replace local files that exist"},
             {"--continue", &options->goOn,
              "Go on with what an earlier --continue had fetched; when interrupted, keep what there is"},
             {"--no-times", &options->noTimes, "Do not keep the times of the last changes"},
             {"--version", &options->version, "Number or id of an earlier version", {.valueName = "VERSION"}},
             jobsOption(options->jobs)},
        .run = [options](const Invocation& invocation) { fetch(invocation, *options); }};
}

} // namespace verbs

} // namespace tarncli
