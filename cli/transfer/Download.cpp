#include "cli/transfer/Download.h"

#include "cli/machine/Memory.h"
#include "cli/remote/FileContent.h"
#include "cli/remote/Requests.h"
#include "cli/terminal/Output.h"
#include "cli/transfer/Conclusion.h"

namespace tarncli {

using namespace connector::tarn;
using connector::Future;

namespace {

bool isSizeDifference(const std::exception_ptr& error)
{
    try {
        std::rethrow_exception(error);
    } catch (const SizeDiffers&) {
        return true;
    } catch (...) {
        return false;
    }
}

} // namespace

void Downloader::addTree(const RemotePath& remote, const std::filesystem::path& local)
{
    auto tree = listRemoteTree(connection, out, remote);
    const bool listed = tree.report.done > 0;
    tree.report.done = 0; // nothing was fetched by looking
    addTo(report.transfers, std::move(tree.report));
    if (listed) addFolder(*tree.root, DownloadFolder::make(local));
}

void Downloader::addFolder(const RemoteFolder& remote, const std::shared_ptr<const DownloadFolder>& local)
{
    ++report.folders;
    ++report.transfers.done;
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
            report.transfers.failed.push_back({child->where.quoted(), failure});
        }
    }
}

DownloadReport Downloader::run()
{
    Transfers transfers(connection, out);
    std::uint64_t total = 0;
    for (auto& download : downloads) {
        total += download.size;
        transfers.add(transferOf(download));
    }
    out.progress().begin("Fetching", connection.transferredBytes(), total, downloads.size());
    addTo(report.transfers, transfers.run());
    out.progress().end();
    return std::move(report);
}

Transfer Downloader::transferOf(Download& download)
{
    Transfer transfer;
    transfer.what = download.remote.quoted();
    transfer.bytes = download.size;
    transfer.start = [this, &download] { return fetch(download); };
    // What was listed a while ago may have been replaced since.
    transfer.mayRepeat = [this, &download](const std::exception_ptr& error) {
        if (!isSizeDifference(error)) return false;
        download.size = sizeOf(connection, download.remote, download.version);
        return true;
    };
    transfer.succeeded = [this, &download] {
        ++report.files;
        report.bytes += download.size;
        out.detail("Fetched " + download.remote.quoted() + " to " +
                   escaped(download.folder->shown(download.name)) + ".");
    };
    return transfer;
}

Future<bool> Downloader::fetch(const Download& download)
{
    if (download.folder->contains(download.name) && overwrite == Overwrite::refuse)
        throw Failure(ExitCode::conflict, escaped(download.folder->shown(download.name)) +
                                              " exists already; use --force to replace it.");
    if (const auto why = whyNotAddressable(download.remote.path); !why.empty()) throw usageError(why);
    requireMemory(download.remote.quoted(), download.size);
    // Written where the reply arrives, so that several files are written at the same time.
    return requestContent(connection, download.remote, download.version)
        .then([folder = download.folder, name = download.name, size = download.size,
               chosen = overwrite](Future<std::unique_ptr<FileReadResponse>>&& reply) {
            const auto response = reply.get();
            if (response->content.size != size) throw SizeDiffers(response->content.size, size);
            folder->store(name, response->content.bytes(), chosen);
            return true;
        });
}

} // namespace tarncli
