#include "cli/remote/Requests.h"
#include "cli/remote/VersionChoice.h"
#include "cli/terminal/Quantities.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/DownloadFolder.h"
#include "cli/transfer/LocalFile.h"
#include "cli/transfer/RemoteTree.h"
#include "cli/verbs/Verbs.h"

#include <nlohmann/json.hpp>

namespace tarncli {

namespace {

using namespace connector::tarn;
using connector::Future;
namespace fs = std::filesystem;

struct Download {
    RemotePath remote;
    VersionInfo version;
    std::uint64_t size = 0;
    std::shared_ptr<const DownloadFolder> folder;
    std::string name; ///< in the folder
};

/// Fetches files and trees from the service.
class Downloader {
public:
    Downloader(Connection& openConnection, Output& output, bool force)
        : connection(openConnection), out(output), overwrite(force ? Overwrite::replace : Overwrite::refuse)
    {
    }

    void add(Download download) { downloads.push_back(std::move(download)); }

    /// Lists the tree, makes its folders below `local`, and notes its files.
    void addTree(const RemotePath& remote, const fs::path& local)
    {
        auto tree = listRemoteTree(connection, out, remote);
        const bool listed = tree.report.done > 0;
        tree.report.done = 0; // nothing was fetched by looking
        addTo(report, std::move(tree.report));
        if (listed) addFolder(*tree.root, DownloadFolder::make(local));
    }

    void run()
    {
        Transfers transfers(connection, out);
        std::uint64_t total = 0;
        for (const auto& download : downloads) {
            total += download.size;
            transfers.add(transferOf(download));
        }
        out.progress().begin("Fetching", connection.transferredBytes(), total, downloads.size());
        addTo(report, transfers.run());
        out.progress().end();
    }

    /// Tells what was done. @throws Failure when not all was
    void finish()
    {
        auto text = "Fetched " + counted(files, "file");
        if (folders > 0) text += " and " + counted(folders, "folder");
        if (files + folders > 0) out.message(text + " (" + humanSize(bytes) + ").");
        out.result("", {{"files", files},
                        {"folders", folders},
                        {"bytes", bytes},
                        {"failed", toJson(report.failed)},
                        {"notTried", report.notStarted}});
        conclude(report, "fetched");
    }

private:
    void addFolder(const RemoteFolder& remote, const std::shared_ptr<const DownloadFolder>& local)
    {
        ++folders;
        ++report.done;
        for (const auto& file : remote.files) {
            const auto name = toUtf8(file.name);
            add({remote.where.child(name), {}, file.size, local, name});
        }
        for (const auto& child : remote.folders) {
            try {
                addFolder(*child, local->makeChild(child->name));
            } catch (const std::exception&) {
                const auto failure = about(child->where.quoted(), explain(std::current_exception()));
                out.warning(failure.what());
                report.failed.push_back({child->where.quoted(), failure});
            }
        }
    }

    Transfer transferOf(const Download& download)
    {
        Transfer transfer;
        transfer.what = download.remote.quoted();
        transfer.bytes = download.size;
        auto received = std::make_shared<std::uint64_t>(0);
        transfer.start = [this, &download, received] { return fetch(download, received); };
        transfer.succeeded = [this, &download, received] {
            ++files;
            bytes += *received;
            out.detail("Fetched " + download.remote.quoted() + " to " +
                       escaped(download.folder->shown(download.name)) + ".");
        };
        return transfer;
    }

    Future<bool> fetch(const Download& download, const std::shared_ptr<std::uint64_t>& received)
    {
        if (download.folder->contains(download.name) && overwrite == Overwrite::refuse)
            throw Failure(ExitCode::conflict, escaped(download.folder->shown(download.name)) +
                                                  " exists already; use --force to replace it.");
        if (const auto why = whyNotAddressable(download.remote.path); !why.empty()) throw usageError(why);
        requireMemory(download.remote.quoted(), download.size);
        auto request = requestFor<FileRead>(download.remote);
        static_cast<VersionInfo&>(*request) = download.version;
        // Written where the reply arrives, so that several files are written at the same time.
        return connection.files()
            .readFile(std::move(request))
            .then([folder = download.folder, name = download.name, chosen = overwrite,
                   received](Future<std::unique_ptr<FileReadResponse>>&& reply) {
                const auto response = reply.get();
                folder->store(name, response->content.bytes(), chosen);
                *received = response->content.size;
                return true;
            });
    }

    Connection& connection;
    Output& out;
    Overwrite overwrite;
    std::vector<Download> downloads;
    TransferReport report;
    std::uint64_t files = 0;
    std::uint64_t folders = 0;
    std::uint64_t bytes = 0;
};

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
    Downloader downloader(connection, invocation.out, options.force);
    for (const auto& remote : remotes)
        addSource(connection, downloader, target, remote, options);
    downloader.run();
    downloader.finish();
}

} // namespace verbs

} // namespace tarncli
