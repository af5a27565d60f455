#include "cli/sync/Execution.h"

#include "cli/remote/FileContent.h"
#include "cli/remote/NewFolder.h"
#include "cli/remote/Recorded.h"
#include "cli/remote/Requests.h"
#include "cli/sync/UploadConfirmation.h"
#include "cli/terminal/Output.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/DamagedUpload.h"
#include "cli/transfer/FolderTransfer.h"
#include "cli/transfer/RecordedTransfer.h"

#include <algorithm>

namespace tarncli {

using namespace connector::tarn;
using connector::Future;
namespace fs = std::filesystem;

namespace {

Failure changedMeanwhile()
{
    return {ExitCode::conflict, "It has changed meanwhile, and was left as it is."};
}

std::ptrdiff_t depthOf(const std::string& place)
{
    return std::count(place.begin(), place.end(), '/');
}

} // namespace

SyncReport Execution::run()
{
    noteWhatIsSame();
    makeFolders();
    copyFiles();
    if (isUp && report.transfers.notStarted == 0) // else the service is gone
        confirmUploads(connection, out, plan.pair, uploaded, journal);
    journal.save();
    remove();
    journal.save();
    report.transfers.done = report.files + report.folders + report.deleted;
    return std::move(report);
}

/// Runs something that is done at once; a failure is told and reported, and the others go on.
template <class Change>
void Execution::change(const std::string& place, Change change)
{
    try {
        change();
    } catch (const std::exception&) {
        const auto failure = about(shownTarget(place), explain(std::current_exception()));
        out.warning(failure.what());
        report.transfers.failed.push_back({place, failure});
        failedFolders.insert(place);
    }
}

void Execution::noteWhatIsSame()
{
    for (const auto& step : plan.steps) {
        if (step.kind != StepKind::note) continue;
        const auto& here = isUp ? *step.source : *step.target;
        const auto& there = isUp ? *step.target : *step.source;
        journal.note(step.place, {here.size, Journal::trusted(here.modified), there.watermark, step.sha256});
    }
}

std::string Execution::shownTarget(const std::string& place) const
{
    return isUp ? plan.pair.remoteAt(place).quoted() : escaped((plan.pair.local / place).string());
}

bool Execution::isBelowFailed(const std::string& place) const
{
    return !failedFolders.empty() &&
           (failedFolders.contains("") ||
            anyUpwards(place, [&](const std::string& above) { return failedFolders.contains(above); }));
}

/// Name by name from the target folder down, so that no link below it is followed.
std::shared_ptr<const DownloadFolder> Execution::folderAt(const std::string& place)
{
    auto& folder = localFolders[place];
    if (!folder) {
        if (place.empty())
            folder = DownloadFolder::make(plan.pair.local);
        else
            folder = folderAt(placeAbove(place))->makeChild(place.substr(place.rfind('/') + 1));
    }
    return folder;
}

void Execution::makeFolders()
{
    if (isUp) return makeRemoteFolders();
    for (const auto& step : plan.steps) {
        if (step.kind != StepKind::makeFolder) continue;
        if (isBelowFailed(step.place)) {
            ++report.transfers.notStarted;
            continue;
        }
        change(step.place, [&] {
            if (step.place.empty() && plan.pair.local.has_parent_path())
                fs::create_directories(plan.pair.local.parent_path());
            if (folderAt(step.place)->isNew()) ++report.folders;
        });
    }
}

void Execution::makeRemoteRoot()
{
    std::vector<RemotePath> missing;
    for (auto folder = plan.pair.remote; !folder.isRoot(); folder = folder.parent())
        missing.push_back(folder);
    for (auto folder = missing.rbegin(); folder != missing.rend(); ++folder) {
        if (folder->path != plan.pair.remote.path && findAttributes(connection, *folder)) continue;
        requireStorable(connection, *folder, false, Existing::refuse);
        if (createMissingFolder(connection, *folder)) ++report.folders;
    }
}

/// Level by level, so that a folder's parent is there before it is asked for.
void Execution::makeRemoteFolders()
{
    std::map<std::ptrdiff_t, std::vector<std::string>> levels;
    for (const auto& step : plan.steps) {
        if (step.kind != StepKind::makeFolder) continue;
        if (step.place.empty())
            change("", [&] { makeRemoteRoot(); });
        else
            levels[depthOf(step.place)].push_back(step.place);
    }
    for (const auto& [depth, level] : levels) {
        Transfers transfers(connection, out);
        for (const auto& place : level) {
            if (isBelowFailed(place)) {
                ++report.transfers.notStarted;
                continue;
            }
            transfers.add(folderTransfer(
                connection, plan.pair.remoteAt(place), [this](bool) { ++report.folders; },
                [this, place](const std::exception_ptr&) { failedFolders.insert(place); }));
        }
        addTo(report.transfers, transfers.run());
    }
}

Execution::Known Execution::lookAhead()
{
    Known known;
    if (!isUp) return known;
    std::vector<std::pair<RemotePath, std::uint64_t>> files;
    std::vector<Upload> uploads;
    for (const auto& step : plan.steps) {
        if (step.kind != StepKind::replace) continue;
        files.emplace_back(plan.pair.remoteAt(step.place), step.target->size);
        uploads.push_back(uploadOf(step));
    }
    if (plan.keepsVersions) {
        known.versions = currentVersions(connection, out, files);
    } else {
        learnDigests(connection, out, uploads);
        for (const auto& upload : uploads)
            known.digests[upload.remote.stored()] = upload.sha256;
    }
    return known;
}

void Execution::copyFiles()
{
    const auto known = lookAhead();
    Transfers transfers(connection, out, moved);
    std::uint64_t bytes = 0;
    std::uint64_t count = 0;
    for (const auto& step : plan.steps) {
        if (step.kind != StepKind::create && step.kind != StepKind::replace) continue;
        if (isBelowFailed(placeAbove(step.place)) || report.transfers.notStarted > 0) {
            ++report.transfers.notStarted;
            continue;
        }
        if (!isUp)
            transfers.add(download(step));
        else if (step.kind == StepKind::create)
            transfers.add(upload(step, known));
        else
            transfers.add(afterLook(step, transfers, [&] { return upload(step, known); }));
        bytes += step.source->size;
        ++count;
    }
    out.progress().begin(isUp ? "Storing" : "Fetching", bytes, count);
    addTo(report.transfers, transfers.run());
    out.progress().end();
}

/// A request that tells whether the stored file is still as planned, and then what `next` makes. One that is gone
/// already needs no deletion.
Transfer Execution::afterLook(const Step& step, Transfers& transfers, std::function<Transfer()> next)
{
    auto isGone = std::make_shared<bool>(false);
    Transfer look;
    look.what = plan.pair.remoteAt(step.place).quoted();
    look.start = [this, where = plan.pair.remoteAt(step.place), watermark = step.target->watermark] {
        return connection.files()
            .readFileAttributes(requestFor<FileAttributesRead>(where))
            .then([watermark](Future<std::unique_ptr<FileAttributesReadResponse>>&& reply) {
                const auto found = reply.get();
                if (isFolder(found->attributes) || found->attributes.watermark != watermark)
                    throw changedMeanwhile();
                return true;
            });
    };
    look.forgives = [isGone, removes = step.kind == StepKind::remove](const std::exception_ptr& error) {
        *isGone = removes && isRefusal(error, reasons::notFound);
        return *isGone;
    };
    look.succeeded = [&transfers, isGone, next = std::move(next)] {
        if (!*isGone) transfers.addFirst(next());
    };
    return look;
}

Upload Execution::uploadOf(const Step& step) const
{
    std::optional<StoredFile> existing;
    if (step.target) existing = {step.target->watermark, step.target->size};
    return {plan.pair.local / step.place, plan.pair.remoteAt(step.place), step.source->size, existing,
            Symlinks::refuse};
}

Transfer Execution::upload(const Step& step, const Known& known)
{
    const auto valueIn = [](const std::map<std::string, std::string>& values, const RemotePath& file) {
        const auto found = values.find(file.stored());
        return found == values.end() ? std::string() : found->second;
    };
    auto asUpload = uploadOf(step);
    asUpload.sha256 = valueIn(known.digests, asUpload.remote);
    const auto before = valueIn(known.versions, asUpload.remote);
    auto entry = std::make_shared<Journal::Entry>();
    return storing(
        connection, asUpload,
        {.existing = plan.keepsVersions ? Existing::addVersion : Existing::replace,
         .before = before,
         .moved = moved,
         .opened =
             [entry](const LocalContent& content) { entry->modified = Journal::trusted(content.modified()); },
         .succeeded =
             [this, asUpload, entry, place = step.place](const StoredContent& stored) {
                 ++report.files;
                 report.bytes += stored.bytes;
                 out.detail([&] {
                     return "Stored " + shown(asUpload.origin) + " as " + asUpload.remote.quoted() + ".";
                 });
                 if (stored.sha256.empty()) return; // no reply told it
                 entry->size = stored.bytes;
                 entry->sha256 = stored.sha256;
                 journal.note(place, *entry);
                 uploaded[place] = *entry;
             }});
}

Transfer Execution::download(const Step& step)
{
    struct Arrival {
        std::shared_ptr<IncomingFile> file;
        Journal::Entry entry;
    };

    auto arrival = std::make_shared<Arrival>();
    Transfer transfer;
    const auto remote = plan.pair.remoteAt(step.place);
    const auto name = step.place.substr(step.place.rfind('/') + 1);
    const auto overwrite = step.target ? Overwrite::replace : Overwrite::refuse;
    transfer.what = remote.quoted();
    transfer.bytes = step.source->size;
    transfer.start = [this, &step, arrival, remote, name, overwrite] {
        const auto folder = folderAt(placeAbove(step.place));
        // What was interrupted is gone on with, also by the next command.
        if (!arrival->file) arrival->file = folder->receive(name, overwrite, Unfinished::keep, moved);
        return requestContent(connection, remote, {}, step.source->size, arrival->file)
            .then([arrival, folder, name, overwrite, source = *step.source,
                   target = step.target](Future<std::string>&& received) {
                auto digest = arrival->file->toldDigest(std::move(received));
                if (digest.empty()) digest = arrival->file->hash()->hex();
                const auto here = folder->find(name);
                if (target && (!here || here->size() != target->size || here->modified() != target->modified))
                    throw changedMeanwhile();
                const auto milliseconds = static_cast<std::uint64_t>(source.modified / 1'000'000);
                arrival->entry = {arrival->file->held(), Journal::trusted(source.modified), source.watermark,
                                  std::move(digest)};
                arrival->file->commit(overwrite, milliseconds);
                return true;
            });
    };
    transfer.succeeded = [this, arrival, remote, place = step.place] {
        ++report.files;
        report.bytes += arrival->entry.size;
        if (const auto& why = arrival->file->whyAnew(); !why.empty()) out.warning(why);
        arrival->file.reset();
        journal.note(place, arrival->entry);
        out.detail([&] { return "Fetched " + remote.quoted() + " to " + shownTarget(place) + "."; });
    };
    transfer.failed = [arrival](const std::exception_ptr& error) {
        if (arrival->file && isPartWrong(error)) arrival->file->discard();
        arrival->file.reset();
    };
    return transfer;
}

void Execution::remove()
{
    const auto count = plan.removals();
    if (count == 0) return;
    if (!report.transfers.failed.empty() || report.transfers.notStarted > 0) {
        out.warning("Nothing was deleted, since not everything else could be done.");
        report.transfers.notStarted += count;
        return;
    }
    Transfers transfers(connection, out);
    for (const auto& step : plan.steps) {
        if (step.kind != StepKind::remove && step.kind != StepKind::removeFolder) continue;
        if (!isUp)
            change(step.place, [&] { removeLocal(step); });
        else if (step.kind == StepKind::remove)
            removeRemote(step, transfers);
    }
    if (!isUp) return;
    addTo(report.transfers, transfers.run());
    removeRemoteFolders();
}

void Execution::removeLocal(const Step& step)
{
    const auto folder = folderAt(placeAbove(step.place));
    const auto name = step.place.substr(step.place.rfind('/') + 1);
    const bool isFile = step.kind == StepKind::remove;
    if (!folder->contains(name)) return journal.forget(step.place);
    if (isFile) {
        const auto here = folder->find(name);
        if (!here || here->size() != step.target->size || here->modified() != step.target->modified)
            throw changedMeanwhile();
    }
    folder->remove(name, !isFile);
    ++report.deleted;
    journal.forget(step.place);
}

namespace {

template <class Request>
Transfer removal(Connection& connection, const RemotePath& where,
                 std::function<Future<std::unique_ptr<typename Request::Response>>()> send)
{
    Transfer transfer;
    transfer.what = where.quoted();
    transfer.start = [send = std::move(send)] {
        return send().then([](Future<std::unique_ptr<typename Request::Response>>&& reply) {
            reply.get();
            return true;
        });
    };
    transfer.wasDone = [&connection, where]() -> std::optional<bool> {
        return !findAttributes(connection, where);
    };
    transfer.forgives = [](const std::exception_ptr& error) { return isRefusal(error, reasons::notFound); };
    return transfer;
}

} // namespace

void Execution::removeRemote(const Step& step, Transfers& transfers)
{
    transfers.add(
        afterLook(step, transfers, [this, where = plan.pair.remoteAt(step.place), place = step.place] {
            auto transfer = removal<FileDelete>(connection, where, [this, where] {
                return connection.files().deleteFile(requestFor<FileDelete>(where));
            });
            transfer.succeeded = [this, place] {
                ++report.deleted;
                journal.forget(place);
            };
            return recorded(connection, std::move(transfer), {Change::Kind::remove, where.stored()});
        }));
}

/// From the deepest level up. Empty ones only: what has come into one meanwhile stays.
void Execution::removeRemoteFolders()
{
    std::map<std::ptrdiff_t, std::vector<RemotePath>, std::greater<>> levels;
    for (const auto& step : plan.steps)
        if (step.kind == StepKind::removeFolder)
            levels[depthOf(step.place)].push_back(plan.pair.remoteAt(step.place));
    for (const auto& [depth, level] : levels) {
        Transfers transfers(connection, out);
        for (const auto& where : level) {
            auto transfer = removal<FolderDelete>(connection, where, [this, where] {
                return connection.files().deleteFolder(requestFor<FolderDelete>(where));
            });
            transfer.succeeded = [this] { ++report.deleted; };
            transfers.add(recorded(connection, std::move(transfer), {Change::Kind::remove, where.stored()}));
        }
        addTo(report.transfers, transfers.run());
    }
}

} // namespace tarncli
