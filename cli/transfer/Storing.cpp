#include "cli/transfer/Storing.h"

#include "cli/remote/Answer.h"
#include "cli/remote/FileContent.h"
#include "cli/remote/Requests.h"
#include "cli/transfer/ContentRelay.h"
#include "cli/transfer/DamagedUpload.h"
#include "cli/transfer/RecordedTransfer.h"

#include <sys/stat.h>

namespace tarncli {

namespace {

using namespace connector::tarn;
using connector::Future;
namespace fs = std::filesystem;

StoredContent confirmed(const FileUploadResponse& response)
{
    requireConfirmed(!response.versionId.empty(), "the id of the version that it stored");
    return StoredContent{response.bytes, response.sha256,
                         response.tag.empty() ? response.versionId : response.tag};
}

/// @param version  that is the current one before; empty: not known
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

/// Whether the service has it although no reply said so; nothing: nobody can tell. The watermark tells whether anything
/// was changed, and the digest whether by this upload; what another has changed instead, or since, nobody can tell.
/// @param stored  filled in when it has
std::optional<bool> isStored(Connection& connection, const Upload& upload, StoredContent& stored)
{
    const auto found = findAttributes(connection, upload.remote);
    if (!found || (upload.existing && found->watermark == upload.existing->watermark)) return false;
    if (found->size != upload.size) return {};
    const auto now = connection.call([&] { return requestCurrent(connection, upload.remote, found->size); });
    const bool isTold = found->size == 0 || !now.sha256.empty();
    if (!isTold || (found->size > 0 && now.sha256 != digestOfOrigin(connection, upload))) return {};
    stored = {found->size, now.sha256, now.version};
    return true;
}

Future<StoredContent> send(Connection& connection, const Upload& upload, const StoringOptions& options,
                           const KnownContent& known)
{
    const bool exists = upload.existing.has_value();
    requireStorable(connection, upload.remote, exists, options.existing);
    // Opened only now, when its turn has come: what waits takes no descriptor.
    if (const auto* other = std::get_if<RemotePath>(&upload.origin))
        return storeContent(connection, upload.remote,
                            contentOf(connection, *other, upload.size, options.moved), {}, options.existing,
                            exists, known);
    const auto content = LocalContent::ofFile(std::get<fs::path>(upload.origin), upload.symlinks);
    options.opened(content);
    return storeContent(connection, upload.remote, content.publisher(options.moved), content.size(),
                        options.existing, exists, known);
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
    request->createMode = exists || known.takesItsPlace ? CreateMode::update : CreateMode::create;
    request->createNewVersion = existing == Existing::addVersion && !known.takesItsPlace;
    request->content = std::move(content);
    request->size = size;
    request->sha256 = known.sha256;
    request->ifVersion = known.ifVersion;
    return connection.contents()
        .uploadFile(std::move(request))
        .then([](Future<std::unique_ptr<FileUploadResponse>>&& reply) { return confirmed(*reply.get()); });
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

Transfer storing(Connection& connection, const Upload& chosen, StoringOptions given)
{
    const auto upload = std::make_shared<const Upload>(chosen);
    const auto options = std::make_shared<const StoringOptions>(std::move(given));
    const auto stored = std::make_shared<StoredContent>();
    const auto damaged = std::make_shared<DamagedUpload>();
    Transfer transfer;
    transfer.what = shown(upload->origin);
    transfer.item = upload->remote.stored();
    transfer.bytes = upload->size;
    transfer.start = [&connection, upload, options, stored, damaged] {
        return send(connection, *upload, *options, damaged->known(*upload))
            .then([stored](Future<StoredContent>&& reply) {
                *stored = reply.get();
                return true;
            });
    };
    transfer.wasDone = [&connection, upload, stored] { return isStored(connection, *upload, *stored); };
    transfer.succeeded = [options, stored] { options->succeeded(*stored); };
    sendDamagedAgain(transfer, connection, upload, options->existing, options->before, damaged);
    return recorded(connection, std::move(transfer), changeBy(*upload, options->existing, options->before),
                    std::shared_ptr<const std::string>(stored, &stored->version));
}

} // namespace tarncli
