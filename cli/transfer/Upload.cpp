#include "cli/transfer/Upload.h"

#include "cli/remote/Answer.h"
#include "cli/remote/Requests.h"
#include "cli/terminal/Output.h"
#include "cli/terminal/Quantities.h"
#include "cli/transfer/Conclusion.h"
#include "cli/transfer/LocalTree.h"
#include "tarn/session/SessionMessages.h"

#include <algorithm>
#include <map>
#include <set>

namespace tarncli {

namespace {

using namespace connector::tarn;
using connector::Future;
namespace fs = std::filesystem;

constexpr const char* contentType = "application/octet-stream";

/// True once the service has confirmed what it stored.
template <class Response>
Future<bool> confirmed(Future<std::unique_ptr<Response>>&& reply)
{
    return reply.then([](Future<std::unique_ptr<Response>>&& ready) {
        requireConfirmed(!ready.get()->versionId.empty(), "the id of the version that it stored");
        return true;
    });
}

template <class Request>
std::unique_ptr<Request> contentRequest(const RemotePath& target, connector::common::DataBuffer&& content,
                                        Existing existing)
{
    auto request = requestFor<Request>(target);
    request->content = std::move(content);
    request->contentType = contentType;
    request->createNewVersion = existing == Existing::addVersion;
    return request;
}

Future<bool> store(Connection& connection, const RemotePath& target, connector::common::DataBuffer&& content,
                   Existing existing, bool exists)
{
    auto& files = connection.files();
    if (exists)
        return confirmed(files.updateFile(contentRequest<FileUpdate>(target, std::move(content), existing)));
    return confirmed(files.createFile(contentRequest<FileCreate>(target, std::move(content), existing)));
}

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
    LocalTree tree;
    std::set<std::string> usable;                          ///< there, or made
    std::set<std::string> merged;                          ///< there before
    std::map<std::string, std::set<std::string>> occupied; ///< names of the files in a merged folder

    bool holds(const LocalEntry& file) const
    {
        const auto found = occupied.find(parentOf(file.below));
        return found != occupied.end() && found->second.contains(file.local.filename().string());
    }
};

void Uploader::addTree(const fs::path& root, const RemotePath& target, bool exists)
{
    if (!exists) requireStorable(connection, target, false, existing);
    Folders folders{target, walkLocalTree(root), {}, {}, {}};
    for (const auto& one : folders.tree.skipped)
        skip(one.local, one.reason);
    for (const auto& one : folders.tree.failed)
        fail(one.local.string(), one.failure);
    if (exists) {
        folders.usable.insert("");
        folders.merged.insert("");
    }
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
    Transfer transfer;
    const auto where = join(folders.target, below);
    transfer.what = where.quoted();
    transfer.start = [this, where] {
        return connection.files()
            .createFolder(requestFor<FolderCreate>(where))
            .then([](Future<std::unique_ptr<FolderCreateResponse>>&& reply) {
                reply.get();
                return true;
            });
    };
    transfer.forgives = [&folders, below](const std::exception_ptr& error) {
        const bool isThere = isAnswer(error, answers::folderExists);
        if (isThere) folders.merged.insert(below);
        return isThere;
    };
    transfer.succeeded = [this, &folders, below] {
        folders.usable.insert(below);
        if (!folders.merged.contains(below)) ++report.folders;
    };
    transfers.add(std::move(transfer));
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
                folders.occupied[below].insert(toUtf8(file.name));
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
            add({entry.local, join(folders.target, entry.below), entry.size, folders.holds(entry),
                 Symlinks::refuse});
    }
}

UploadReport Uploader::run()
{
    std::uint64_t total = 0;
    Transfers transfers(connection, out);
    for (const auto& upload : uploads) {
        if (upload.exists && existing == Existing::skip) {
            skip(upload.local, "it exists already");
            continue;
        }
        Transfer transfer;
        transfer.what = escaped(upload.local.string());
        transfer.bytes = upload.size;
        transfer.start = [this, &upload] { return send(upload); };
        transfer.succeeded = [this, &upload] {
            ++report.files;
            report.bytes += upload.size;
            out.detail("Stored " + escaped(upload.local.string()) + " as " + upload.remote.quoted() + ".");
        };
        transfers.add(std::move(transfer));
        total += upload.size;
    }
    out.progress().begin("Storing", connection.transferredBytes(), total, uploads.size());
    addTo(report.transfers, transfers.run());
    out.progress().end();
    return std::move(report);
}

Future<bool> Uploader::send(const Upload& upload)
{
    requireStorable(connection, upload.remote, upload.exists, existing);
    // Read only now, when its turn has come: what waits takes no memory.
    return store(connection, upload.remote, readLocalFile(upload.local, upload.symlinks), existing,
                 upload.exists);
}

void Uploader::fail(const std::string& what, const Failure& failure)
{
    const auto told = about(escaped(what), failure);
    out.warning(told.what());
    report.transfers.failed.push_back({what, told});
}

void Uploader::skip(const fs::path& local, const std::string& reason)
{
    out.warning("Skipped " + escaped(local.string()) + ": " + reason + ".");
    report.skipped.push_back(local.string());
}

void uploadStandardInput(Connection& connection, const RemotePath& target, Existing existing, bool exists,
                         std::uint64_t& bytes)
{
    requireStorable(connection, target, exists, existing); // before the input is used up
    auto content = readStandardInput();
    bytes = content.size;
    // What was read cannot be read again: should the session have ended meanwhile, it is renewed before.
    connection.call([&] { return connection.session().ping(nullptr); });
    naming(target, [&] { return store(connection, target, std::move(content), existing, exists).get(); });
}

} // namespace tarncli
