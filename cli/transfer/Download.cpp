#include "cli/transfer/Download.h"

#include "cli/remote/FileContent.h"
#include "cli/remote/Requests.h"
#include "cli/remote/StoredNames.h"
#include "cli/terminal/Output.h"
#include "cli/transfer/Comparison.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/IncomingFile.h"

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

/// Of a file that is here already, so that nobody will go on with it, unless another command is just doing that.
void removePart(const Download& download)
{
    try {
        if (download.folder->contains(partName(download.name)))
            download.folder->receive(download.name, Overwrite::replace, Unfinished::keep, countFromZero())
                ->discard();
    } catch (const Failure&) { // it stays, as the user has it
    }
}

} // namespace

void Downloader::addTree(const RemotePath& remote, const std::filesystem::path& local)
{
    ++sources;
    auto tree = listRemoteTree(connection, out, remote);
    const bool listed = tree.report.done > 0;
    tree.report.done = 0; // nothing was fetched by looking
    addTo(report.transfers, std::move(tree.report));
    if (listed) addFolder(*tree.root, DownloadFolder::make(local));
}

void Downloader::addFolder(const RemoteFolder& remote, const std::shared_ptr<const DownloadFolder>& local)
{
    if (local->isNew()) ++report.folders;
    ++report.transfers.done;
    for (const auto& file : remote.files) {
        const auto name = toUtf8(file.name);
        downloads.push_back({remote.where.child(name), VersionInfo(), file.size, file.lastModified, local,
                             decodedName(name)});
    }
    for (const auto& child : remote.folders) {
        try {
            addFolder(*child, local->makeChild(decodedName(child->name)));
        } catch (const std::exception&) {
            const auto failure = about(child->where.quoted(), explain(std::current_exception()));
            out.warning(failure.what());
            report.transfers.failed.push_back({child->where.quoted(), failure});
        }
    }
}

/// Of two sources for one place the second would replace the first, or the first the second. And what bears the name of
/// a part would go when the file is fetched that it looks like a part of.
void Downloader::refuseImpossible()
{
    std::map<std::string, std::string> taken;
    const bool isOnlyOne = downloads.size() == 1;
    std::erase_if(downloads, [&](const Download& download) {
        std::string why;
        if (isIncoming(download.name))
            why = "Files with such names are parts of what is being fetched, and removed again; fetch it "
                  "under another "
                  "name.";
        else if (sources > 1) {
            const auto place = download.folder->shown(download.name);
            if (const auto [first, isFree] = taken.emplace(place, download.remote.quoted()); !isFree)
                why = escaped(place) + " is the place of " + first->second + " already.";
        }
        if (why.empty()) return false;
        const auto what = download.remote.quoted();
        const auto told = about(what, Failure(ExitCode::conflict, why));
        if (!isOnlyOne) out.warning(told.what());
        report.transfers.failed.push_back({what, told, !isOnlyOne});
        return true;
    });
}

/// A file with the size and the time that fetching it would give is taken for the same; one of the same size is
/// compared by its digest. So is a version: what replaced it between the listing and the fetching has its time here.
void Downloader::leaveWhatIsHere()
{
    Comparisons comparisons(connection, out);
    for (auto& download : downloads) {
        if (download.folder->isNew())
            continue; // what has come into it since is found when its name is wanted
        const auto here = download.folder->find(download.name);
        if (!here || here->size() != download.size) continue;
        download.isLeft = true; // until it is known to differ
        const auto tell = [this, &download](const Compared& both) {
            download.isLeft = both.isSame;
            if (!both.isSame) return;
            if (options.unfinished == Unfinished::keep) removePart(download);
            ++report.unchanged;
            out.detail([&] {
                return escaped(download.folder->shown(download.name)) + " has the content of " +
                       download.remote.quoted() + " already.";
            });
        };
        const bool isCurrent = download.version.versionId.empty();
        if (options.keepTimes && isCurrent && here->lastModified() == download.lastModified) {
            tell({.isSame = true});
            continue;
        }
        const auto open = [folder = download.folder, name = download.name] {
            auto again = folder->find(name);
            if (!again) throw Failure(ExitCode::failure, "It has just gone; fetch it again.");
            return *again;
        };
        comparisons.add({download.remote.quoted(), open, download.remote, download.version, download.size},
                        tell);
    }
    addTo(report.transfers, comparisons.run());
    std::erase_if(downloads, [](const auto& download) { return download.isLeft; });
}

DownloadReport Downloader::run()
{
    refuseImpossible();
    leaveWhatIsHere();
    Transfers transfers(connection, out, moved);
    std::uint64_t total = 0;
    for (auto& download : downloads) {
        total += download.size;
        transfers.add(transferOf(download));
    }
    out.progress().begin("Fetching", total, downloads.size());
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
        lookAgain(download);
        return true;
    };
    transfer.succeeded = [this, &download] { conclude(download); };
    transfer.failed = [&download](const std::exception_ptr& error) {
        if (download.incoming && isPartWrong(error)) download.incoming->discard();
        download.incoming.reset();
    };
    return transfer;
}

Future<bool> Downloader::fetch(Download& download)
{
    if (const auto why = whyNotAddressable(download.remote.path); !why.empty()) throw usageError(why);
    // After an interruption it goes on where it was.
    if (!download.incoming)
        download.incoming =
            download.folder->receive(download.name, options.overwrite, options.unfinished, moved);
    // Committed where the reply arrives, so that several files are synced at the same time.
    return requestContent(connection, download.remote, download.version, download.size, download.incoming)
        .then([file = download.incoming, overwrite = options.overwrite,
               time = options.keepTimes ? download.lastModified : 0](Future<std::string>&& received) {
            file->toldDigest(std::move(received));
            file->commit(overwrite, time);
            return true;
        });
}

void Downloader::conclude(Download& download)
{
    if (const auto& why = download.incoming->whyAnew(); !why.empty()) out.warning(why);
    report.bytes += download.incoming->held();
    download.incoming.reset();
    ++report.files;
    out.detail([&] {
        return "Fetched " + download.remote.quoted() + " to " +
               escaped(download.folder->shown(download.name)) + ".";
    });
}

void Downloader::lookAgain(Download& download)
{
    download.size = sizeOf(connection, download.remote, download.version);
    if (download.version.versionId.empty())
        download.lastModified = readAttributes(connection, download.remote).lastModified;
}

} // namespace tarncli
