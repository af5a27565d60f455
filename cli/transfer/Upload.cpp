#include "cli/transfer/Upload.h"

#include "cli/remote/Answer.h"
#include "cli/remote/FileContent.h"
#include "cli/remote/NewFolder.h"
#include "cli/remote/Recorded.h"
#include "cli/remote/Requests.h"
#include "cli/service/ErrorMapping.h"
#include "cli/terminal/Output.h"
#include "cli/terminal/Quantities.h"
#include "cli/transfer/Comparison.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/ContentRelay.h"
#include "cli/transfer/DamagedUpload.h"
#include "cli/transfer/FolderTransfer.h"
#include "cli/transfer/RecordedTransfer.h"
#include "tarn/session/SessionMessages.h"

#include <algorithm>
#include <map>
#include <set>
#include <sys/stat.h>

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

StoredContent confirmed(const FileUploadResponse& response)
{
    requireConfirmed(!response.versionId.empty(), "the id of the version that it stored");
    return StoredContent{response.bytes, response.sha256,
                         response.tag.empty() ? response.versionId : response.tag};
}

} // namespace

std::string digestOfOrigin(Connection& connection, const Upload& upload)
{
    if (const auto* other = std::get_if<RemotePath>(&upload.origin)) return digestOf(connection, *other);
    return LocalContent::ofFile(std::get<fs::path>(upload.origin), upload.symlinks).sha256();
}

Future<StoredContent> storeContent(Connection& connection, const RemotePath& target, ContentPublisher content,
                                   std::optional<std::uint64_t> size, Existing existing, bool exists,
                                   const KnownContent& known)
{
    auto request = requestFor<FileUpload>(target);
    request->createMode = exists || !known.replaces.empty() ? CreateMode::update : CreateMode::create;
    request->createNewVersion = existing == Existing::addVersion && known.replaces.empty();
    request->content = std::move(content);
    request->size = size;
    request->sha256 = known.sha256;
    request->ifVersion = known.replaces;
    return connection.contents()
        .uploadFile(std::move(request))
        .then([](Future<std::unique_ptr<FileUploadResponse>>&& reply) { return confirmed(*reply.get()); });
}

Change changeBy(const Upload& upload, Existing existing, const std::string& version)
{
    Change change{Change::Kind::createFile, upload.remote.stored()};
    if (upload.existing) {
        const bool keeps = existing == Existing::addVersion;
        change.kind = keeps ? Change::Kind::addVersion : Change::Kind::replaceContent;
        change.before = keeps ? version : upload.existing->watermark;
    }
    change.size = upload.size;
    if (const auto* remote = std::get_if<RemotePath>(&upload.origin)) {
        change.remoteOrigin = remote->stored();
        return change;
    }

    struct stat status {};

    const auto& local = std::get<fs::path>(upload.origin);
    change.localOrigin = fs::absolute(local).string();
    if (::stat(local.c_str(), &status) == 0)
        change.modified = std::int64_t{status.st_mtim.tv_sec} * 1'000'000'000 + status.st_mtim.tv_nsec;
    return change;
}

void requireStorable(const Connection& connection, const RemotePath& target, bool exists, Existing existing)
{
    if (exists && existing == Existing::refuse)
        throw Failure(ExitCode::conflict, target.quoted() +
                                              " exists already; use --force to replace its content, or "
                                              "--new-version to keep the old one as a version.");
    if (!exists && !target.bucket.empty() && target.bucket != connection.user())
        throw Failure(ExitCode::notAllowed, target.quoted() +
                                                " cannot be made: new files and folders can be stored "
                                                "in your own storage only.");
}

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
            out.detail(upload.remote.quoted() + " has the content of " + shown(upload.origin) + " already.");
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
        Transfer transfer;
        auto stored = std::make_shared<StoredContent>();
        const auto damaged = std::make_shared<DamagedUpload>();
        const auto found = versions.find(upload.remote.stored());
        const auto before = found == versions.end() ? std::string() : found->second;
        transfer.what = shown(upload.origin);
        transfer.item = upload.remote.stored();
        transfer.bytes = upload.size;
        transfer.start = [this, &upload, stored, damaged] {
            return send(upload, stored, damaged->known(upload));
        };
        transfer.wasDone = [this, &upload, stored] {
            const auto isDone = isStored(connection, upload);
            if (isDone == true) stored->bytes = upload.size;
            return isDone;
        };
        transfer.succeeded = [this, &upload, stored] {
            ++report.files;
            report.bytes += stored->bytes; // the file may have become longer or shorter
            out.detail("Stored " + shown(upload.origin) + " as " + upload.remote.quoted() + ".");
        };
        sendDamagedAgain(transfer, connection, upload, existing, before, damaged);
        transfers.add(recorded(connection, std::move(transfer), changeBy(upload, existing, before),
                               std::shared_ptr<const std::string>(stored, &stored->version)));
        total += upload.size;
    }
    out.progress().begin("Storing", total, uploads.size());
    addTo(report.transfers, transfers.run());
    out.progress().end();
    return std::move(report);
}

Future<bool> Uploader::send(const Upload& upload, const std::shared_ptr<StoredContent>& stored,
                            const KnownContent& known)
{
    const bool exists = upload.existing.has_value();
    requireStorable(connection, upload.remote, exists, existing);
    // Opened only now, when its turn has come: what waits takes no descriptor.
    const auto begin = [&] {
        if (const auto* other = std::get_if<RemotePath>(&upload.origin))
            return storeContent(connection, upload.remote, contentOf(connection, *other, upload.size, moved),
                                {}, existing, exists, known);
        const auto content = LocalContent::ofFile(std::get<fs::path>(upload.origin), upload.symlinks);
        return storeContent(connection, upload.remote, content.publisher(moved), content.size(), existing,
                            exists, known);
    };
    return begin().then([stored](Future<StoredContent>&& reply) {
        *stored = reply.get();
        return true;
    });
}

/// The watermark tells whether anything was changed, and the digest whether by this upload; what another has changed
/// instead, or since, nobody can tell.
std::optional<bool> isStored(Connection& connection, const Upload& upload)
{
    const auto found = findAttributes(connection, upload.remote);
    if (!found || (upload.existing && found->watermark == upload.existing->watermark)) return false;
    if (found->size != upload.size) return {};
    if (found->size == 0 || digestOf(connection, upload.remote) == digestOfOrigin(connection, upload))
        return true;
    return {};
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
