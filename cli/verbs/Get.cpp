#include "cli/remote/Requests.h"
#include "cli/remote/VersionChoice.h"
#include "cli/terminal/Quantities.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/Download.h"
#include "cli/verbs/Verbs.h"

#include <nlohmann/json.hpp>

namespace tarncli {

namespace {

using namespace connector::tarn;
namespace fs = std::filesystem;

/// The local place that the user named, and what a remote item becomes there.
struct Target {
    fs::path path;
    bool isFolder = false;

    Target(const std::string& place, bool severalSources) : path(place), isFolder(fs::is_directory(place))
    {
        const bool mustBeFolder = severalSources || place.ends_with('/');
        if (mustBeFolder && !isFolder)
            throw Failure(fs::exists(path) ? ExitCode::conflict : ExitCode::notFound,
                          "There is no local folder " + escaped(place) + "; make it first.");
    }

    void addFile(Downloader& downloader, const RemotePath& remote, const VersionInfo& version,
                 std::uint64_t size) const
    {
        const auto folder = DownloadFolder::open(isFolder ? path : path.parent_path());
        downloader.add({remote, version, size, folder, isFolder ? remote.name() : path.filename().string()});
    }

    void addTree(Downloader& downloader, const RemotePath& remote) const
    {
        if (!isFolder && fs::exists(path))
            throw Failure(ExitCode::conflict,
                          escaped(path.string()) + " is a file; a folder cannot replace it.");
        downloader.addTree(remote, isFolder && !remote.isRoot() ? path / remote.name() : path);
    }
};

void addSource(Connection& connection, Downloader& downloader, const Target& target, const RemotePath& remote,
               const GetOptions& options)
{
    const auto attributes = attributesOf(connection, remote);
    if (!isFolder(attributes)) {
        VersionInfo version;
        if (!options.version.empty()) version = chooseVersion(connection, remote, options.version);
        return target.addFile(downloader, remote, version, attributes.size);
    }
    if (!options.recursive)
        throw usageError(remote.quoted() +
                         " is a folder; use `tarn get -r` to fetch it with all that is in it.");
    if (!options.version.empty())
        throw usageError("--version is for files; " + remote.quoted() + " is a folder.");
    target.addTree(downloader, remote);
}

void show(Output& out, const DownloadReport& report)
{
    auto text = "Fetched " + counted(report.files, "file");
    if (report.folders > 0) text += " and " + counted(report.folders, "folder");
    if (report.files + report.folders > 0) out.message(text + " (" + humanSize(report.bytes) + ").");
    out.result("", {{"files", report.files},
                    {"folders", report.folders},
                    {"bytes", report.bytes},
                    {"failed", toJson(report.transfers.failed)},
                    {"notTried", report.transfers.notStarted}});
}

} // namespace

namespace verbs {

void get(const Invocation& invocation, const GetOptions& options)
{
    auto sources = options.places;
    std::string place = ".";
    if (sources.size() > 1) {
        place = sources.back();
        sources.pop_back();
    }
    if (place == "-") return cat(invocation, {sources, options.version});
    std::vector<RemotePath> remotes;
    for (const auto& source : sources)
        remotes.push_back(addressable(source));
    const Target target(place, remotes.size() > 1);
    auto connection = invocation.connect();
    Downloader downloader(connection, invocation.out, options.force ? Overwrite::replace : Overwrite::refuse);
    for (const auto& remote : remotes)
        addSource(connection, downloader, target, remote, options);
    const auto report = downloader.run();
    show(invocation.out, report);
    conclude(report.transfers, "fetched");
}

} // namespace verbs

} // namespace tarncli
