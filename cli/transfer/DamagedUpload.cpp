#include "cli/transfer/DamagedUpload.h"

#include "cli/remote/FileContent.h"
#include "cli/remote/Requests.h"
#include "cli/remote/VersionChoice.h"
#include "cli/service/ErrorMapping.h"
#include "cli/terminal/Output.h"
#include "tarn/transfer/DigestMismatch.h"

#include <algorithm>

namespace tarncli {

using namespace connector::tarn;
using connector::Future;
namespace fs = std::filesystem;

namespace {

/// Not what another has stored there since, and not what has come through after all.
bool isStillDamaged(Connection& connection, const RemotePath& target, const DamagedUpload& damaged)
{
    if (damaged.version.empty()) return false;
    const auto now = currentOf(connection, target);
    return now.version == damaged.version && now.sha256 != damaged.sha256;
}

void restore(Connection& connection, const RemotePath& file, const std::string& before)
{
    const auto versions = versionsOf(connection, file)->versions;
    const auto version = std::ranges::find_if(
        versions, [&](const VersionSummary& each) { return isVersion(before, each.versionId); });
    if (version == versions.end()) throw Failure(ExitCode::notFound, "That version is gone.");
    connection.call([&] {
        auto request = requestFor<VersionRestore>(file);
        request->versionId = version->versionId;
        request->versionLabel = version->versionLabel;
        return connection.versioning().restoreVersion(std::move(request));
    });
}

/// @return what to tell then; nothing: what was stored stands there
std::optional<Failure> takenBack(Connection& connection, const RemotePath& target, bool exists,
                                 const std::string& before, const DamagedUpload& damaged)
{
    try {
        if ((exists && before.empty()) || !isStillDamaged(connection, target, damaged)) return {};
        if (exists) {
            restore(connection, target, before);
            return Failure(ExitCode::failure,
                           "Something between here and the service changes what is sent; the content from "
                           "before is the current one again. Store it again when that is mended.");
        }
        connection.call([&] { return connection.files().deleteFile(requestFor<FileDelete>(target)); });
        return sentDamaged();
    } catch (const std::exception&) { // that it cannot be taken back is what people need to know
        return {};
    }
}

Transfer digestTransfer(Connection& connection, Upload& upload, const MovedBytes& read)
{
    auto digest = std::make_shared<std::string>();
    Transfer transfer;
    transfer.what = shown(upload.origin);
    transfer.bytes = upload.size;
    transfer.start = [&connection, &upload, read, digest] {
        if (const auto* other = std::get_if<RemotePath>(&upload.origin))
            return requestDigest(connection, *other).then([digest](Future<std::string>&& told) {
                *digest = told.get();
                return true;
            });
        // Read and hashed where the reply arrives, so that several files are at the same time.
        return connection.files()
            .readFileAttributes(requestFor<FileAttributesRead>(upload.remote))
            .then([file = std::get<fs::path>(upload.origin), symlinks = upload.symlinks, read,
                   digest](Future<std::unique_ptr<FileAttributesReadResponse>>&& reply) {
                reply.get();
                *digest = LocalContent::ofFile(file, symlinks).sha256(read);
                return true;
            });
    };
    transfer.succeeded = [&upload, digest] { upload.sha256 = *digest; };
    transfer.forgives = [](const std::exception_ptr&) { return true; }; // the upload tells what is wrong
    return transfer;
}

} // namespace

void learnDigests(Connection& connection, Output& out, std::vector<Upload>& uploads)
{
    const auto read = countFromZero();
    Transfers transfers(connection, out, read);
    std::uint64_t total = 0;
    std::uint64_t files = 0;
    for (auto& upload : uploads) {
        // Of nothing, nothing can be lost.
        const bool isLoss = upload.existing && upload.existing->size > 0 && upload.size > 0;
        if (!isLoss || !upload.sha256.empty()) continue;
        transfers.add(digestTransfer(connection, upload, read));
        total += upload.size;
        ++files;
    }
    out.progress().begin("Reading", total, files);
    transfers.run();
    out.progress().end();
}

void DamagedUpload::note(const std::exception_ptr& error)
{
    isError<StoredMismatch>(error, [this](const StoredMismatch& mismatch) {
        wasStored = true;
        version = mismatch.versionId();
        return true;
    });
}

Failure storedDamaged(Connection& connection, const RemotePath& target, bool exists,
                      const std::string& before, const DamagedUpload& damaged)
{
    if (auto told = takenBack(connection, target, exists, before, damaged)) return *told;
    return {ExitCode::failure, "Something between here and the service changes what is sent, and what stands "
                               "there now is damaged. Store it again with --force when that is mended."};
}

void sendDamagedAgain(Transfer& transfer, Connection& connection, const Upload& upload, Existing existing,
                      const std::string& before, const std::shared_ptr<DamagedUpload>& damaged)
{
    transfer.mayRepeat = [&connection, upload, damaged](const std::exception_ptr& error) {
        if (!isSentDamaged(error)) return false;
        damaged->note(error);
        damaged->sha256 = digestOfOrigin(connection, upload);
        return true;
    };
    const auto keptBefore = existing == Existing::addVersion ? before : std::string();
    transfer.failed = [&connection, upload, keptBefore, damaged](const std::exception_ptr& error) {
        damaged->note(error);
        if (damaged->wasStored && !isUnknownOutcome(error))
            throw storedDamaged(connection, upload.remote, upload.existing.has_value(), keptBefore, *damaged);
    };
}

} // namespace tarncli
