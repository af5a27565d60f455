#include "cli/transfer/Upload.h"

#include "cli/remote/FileContent.h"
#include "cli/remote/NewFolder.h"
#include "cli/remote/Recorded.h"
#include "cli/remote/Requests.h"
#include "cli/service/ErrorMapping.h"
#include "cli/terminal/Output.h"
#include "cli/terminal/Quantities.h"
#include "cli/transfer/Comparison.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/DamagedUpload.h"
#include "cli/transfer/FolderTransfer.h"
#include "cli/transfer/RecordedTransfer.h"
#include "tarn/session/SessionMessages.h"

#include <algorithm>
#include <map>
#include <set>

namespace tarncli {

namespace {

using namespace connector::tarn;
using connector::Future;
namespace fs = std::filesystem;

std::string parentOf(const std::string& below)
{
    const auto slash = below.rfind('/');
    return slash == std::string::npos ? "" : below.substr(0, slash);
}

RemotePath join(const RemotePath& folder, const std::string& below)
{
    return below.empty() ? folder : folder.child(below);
}

} // namespace

/// The folders of one tree, by their place below its root; "" is the root itself.
struct Uploader::Folders {
    RemotePath target;
    SourceTree tree;
    std::set<std::string> usable; ///< there, or made
    std::set<std::string> merged; ///< there before
    /// The files in a merged folder, by their names.
    std::map<std::string, std::map<std::string, StoredFile>> existing;

    std::optional<StoredFile> existingOf(const SourceEntry& file) const
    {
        const auto folder = existing.find(parentOf(file.below));
        if (folder == existing.end()) return {};
        const auto found = folder->second.find(file.below.substr(file.below.rfind('/') + 1));
        if (found == folder->second.end()) return {};
        return found->second;
    }
};

void Uploader::makeFolder(const RemotePath& folder)
{
    requireStorable(connection, folder, false, existing);
    naming(folder, [&] { createFolder(connection, folder); });
    ++report.folders;
    ++report.transfers.done;
}

void Uploader::addTree(SourceTree source, const RemotePath& target, TargetFolder state)
{
    ++sources;
    if (state == TargetFolder::missing) requireStorable(connection, target, false, existing);
    Folders folders{target, std::move(source), {}, {}, {}};
    for (const auto& one : folders.tree.skipped)
        skip(one.origin, one.reason);
    for (const auto& one : folders.tree.failed)
        fail(one.origin, one.failure);
    if (state != TargetFolder::missing) folders.usable.insert("");
    if (state == TargetFolder::exists) folders.merged.insert("");
    makeFolders(folders);
    lookInto(folders);
    addFiles(folders);
}

/// Level by level, so that a folder's parent is there before it is asked for.
void Uploader::makeFolders(Folders& folders)
{
    std::map<std::ptrdiff_t, std::vector<std::string>> levels;
    if (folders.usable.empty()) levels[-1].push_back("");
    for (const auto& entry : folders.tree.entries)
        if (entry.isFolder)
            levels[std::count(entry.below.begin(), entry.below.end(), '/')].push_back(entry.below);
    for (const auto& [depth, level] : levels) {
        Transfers transfers(connection, out);
        for (const auto& below : level)
            if (depth < 0 || folders.usable.contains(parentOf(below))) addFolder(transfers, folders, below);
        const auto before = report.folders;
        auto made = transfers.run();
        made.done = report.folders - before; // a folder that was there is no work done
        addTo(report.transfers, std::move(made));
    }
}

void Uploader::addFolder(Transfers& transfers, Folders& folders, const std::string& below)
{
    transfers.add(
        folderTransfer(connection, join(folders.target, below), [this, &folders, below](bool isNew) {
            folders.usable.insert(below);
            if (isNew)
                ++report.folders;
            else
                folders.merged.insert(below);
        }));
}

/// What a folder holds that was there before tells which files exist.
void Uploader::lookInto(Folders& folders)
{
    using Reply = std::unique_ptr<FolderListResponse>;
    Transfers transfers(connection, out);
    for (const auto& below : folders.merged) {
        auto reply = std::make_shared<Reply>();
        Transfer transfer;
        const auto where = join(folders.target, below);
        transfer.what = where.quoted();
        transfer.start = [this, where, reply] {
            return requestListing(connection, where).then([reply](Future<Reply>&& listed) {
                *reply = listed.get();
                return true;
            });
        };
        transfer.succeeded = [&folders, below, reply] {
            for (const auto& file : (*reply)->files)
                folders.existing[below][toUtf8(file.name)] = {file.watermark, file.size};
        };
        transfers.add(std::move(transfer));
    }
    auto looked = transfers.run();
    looked.done = 0; // nothing was stored by looking
    addTo(report.transfers, std::move(looked));
}

void Uploader::addFiles(const Folders& folders)
{
    for (const auto& entry : folders.tree.entries) {
        if (entry.isFolder) continue;
        if (!folders.usable.contains(parentOf(entry.below)))
            ++report.transfers.notStarted;
        else
            uploads.push_back({entry.origin, join(folders.target, entry.below), entry.size,
                               folders.existingOf(entry), Symlinks::refuse});
    }
}

namespace {

std::variant<std::function<LocalContent()>, RemotePath> otherOf(const Upload& upload)
{
    if (const auto* remote = std::get_if<RemotePath>(&upload.origin)) return *remote;
    return [local = std::get<fs::path>(upload.origin), symlinks = upload.symlinks] {
        return LocalContent::ofFile(local, symlinks);
    };
}

} // namespace

/// Of two sources for one place the second would replace the first, or the first the second.
void Uploader::refuseTwins()
{
    if (sources < 2) return;
    std::map<std::string, std::string> taken;
    std::erase_if(uploads, [&](const Upload& upload) {
        const auto [place, isFree] = taken.emplace(upload.remote.stored(), shown(upload.origin));
        if (!isFree)
            fail(upload.origin, Failure(ExitCode::conflict, upload.remote.quoted() + " is the place of " +
                                                                place->second + " already."));
        return !isFree;
    });
}

/// One request for each file of the same size; nothing is sent.
void Uploader::leaveWhatIsThere()
{
    Comparisons comparisons(connection, out);
    for (auto& upload : uploads) {
        if (!upload.existing || upload.existing->size != upload.size) continue;
        upload.isLeft = true; // until it is known to differ
        Comparison both{shown(upload.origin), otherOf(upload), upload.remote, {}, upload.size};
        comparisons.add(std::move(both), [this, &upload](const Compared& found) {
            upload.isLeft = found.isSame;
            if (existing == Existing::replace) upload.sha256 = found.sha256;
            if (!found.isSame) return;
            ++report.unchanged;
            out.detail([&] {
                return upload.remote.quoted() + " has the content of " + shown(upload.origin) + " already.";
            });
        });
    }
    addTo(report.transfers, comparisons.run());
    std::erase_if(uploads, [](const auto& upload) { return upload.isLeft; });
}

/// For those that get another version.
std::map<std::string, std::string> Uploader::versionsBefore()
{
    std::vector<std::pair<RemotePath, std::uint64_t>> files;
    for (const auto& upload : uploads)
        if (upload.existing && existing == Existing::addVersion)
            files.emplace_back(upload.remote, upload.existing->size);
    return currentVersions(connection, out, files);
}

UploadReport Uploader::run()
{
    refuseTwins();
    if (existing != Existing::skip) leaveWhatIsThere();
    if (existing == Existing::replace) learnDigests(connection, out, uploads);
    const auto versions = versionsBefore();
    std::uint64_t total = 0;
    Transfers transfers(connection, out, moved);
    for (const auto& upload : uploads) {
        if (upload.existing && existing == Existing::skip) {
            skip(upload.origin, "it exists already");
            continue;
        }
        const auto found = versions.find(upload.remote.stored());
        transfers.add(storing(connection, upload,
                              {.existing = existing,
                               .before = found == versions.end() ? std::string() : found->second,
                               .moved = moved,
                               .succeeded = [this, &upload](const StoredContent& stored) {
                                   ++report.files;
                                   report.bytes += stored.bytes; // it may have become longer or shorter
                                   out.detail([&] {
                                       return "Stored " + shown(upload.origin) + " as " +
                                              upload.remote.quoted() + ".";
                                   });
                               }}));
        total += upload.size;
    }
    out.progress().begin("Storing", total, uploads.size());
    addTo(report.transfers, transfers.run());
    out.progress().end();
    return std::move(report);
}

void Uploader::fail(const Origin& origin, const Failure& failure)
{
    const auto told = about(shown(origin), failure);
    out.warning(told.what());
    report.transfers.failed.push_back({textOf(origin), told});
}

void Uploader::skip(const Origin& origin, const std::string& reason)
{
    out.warning("Skipped " + shown(origin) + ": " + reason + ".");
    report.skipped.push_back(textOf(origin));
}

void uploadStandardInput(Connection& connection, const RemotePath& target, Existing existing, bool exists,
                         std::uint64_t& bytes)
{
    requireStorable(connection, target, exists, existing); // before the input is used up
    const auto content = LocalContent::ofStandardInput();
    // What was read cannot be read again: should the session have ended while nothing came, it is renewed before.
    awaitStandardInput();
    connection.call([&] { return connection.session().ping(nullptr); });
    Change change{Change::Kind::createFile, target.stored()};
    if (exists) change.kind = Change::Kind::replaceContent;
    if (exists && existing == Existing::addVersion) {
        change.kind = Change::Kind::addVersion;
        change.before = naming(target, [&] { return currentOf(connection, target).version; });
    }
    const auto store = [&] {
        try {
            const auto stored = storeContent(connection, target, content.publisher(countFromZero()),
                                             content.size(), existing, exists)
                                    .get();
            bytes = stored.bytes;
            return stored.version;
        } catch (const std::exception&) {
            DamagedUpload damaged;
            damaged.note(std::current_exception());
            if (damaged.wasStored) takeDamagedBack(connection, target, exists, change.before, damaged);
            throw;
        }
    };
    naming(target, [&] {
        try {
            recorded(connection, change, store);
        } catch (const std::exception&) {
            const auto error = std::current_exception();
            if (!isTransient(error)) throw;
            const auto failure = explain(error);
            throw failure.saying(failure.what() +
                                 std::string(" Nothing was stored, and a pipe cannot be read twice: run "
                                             "the whole command again."));
        }
    });
}

} // namespace tarncli
