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

/// What most failures begin with.
constexpr const char* cause = "Something between here and the service changes what is sent; ";

enum class Standing {
    damaged,
    taken,   ///< back: what was there before is there again
    others,  ///< somebody else has changed it since
    arrived, ///< it is what was to be stored; only the reply said otherwise
};

/// @param exists  a file was there before
/// @param before  its version; empty: not known
Standing standing(Connection& connection, const RemotePath& target, bool exists, const std::string& before,
                  const DamagedUpload& damaged)
{
    if (damaged.stored.empty()) return Standing::damaged;
    try {
        const auto now = currentOf(connection, target);
        if (!before.empty() && now.version == before) return Standing::taken;
        if (now.version != damaged.stored) return Standing::others;
        return !now.sha256.empty() && now.sha256 == damaged.sha256 ? Standing::arrived : Standing::damaged;
    } catch (const std::exception&) {
        if (!isRefusal(std::current_exception(), reasons::notFound)) throw;
        return exists ? Standing::others : Standing::taken;
    }
}

void restore(Connection& connection, const RemotePath& file, const std::string& before,
             const std::string& damaged)
{
    const auto versions = versionsOf(connection, file)->versions;
    const auto version = std::ranges::find_if(
        versions, [&](const VersionSummary& each) { return isVersion(before, each.versionId); });
    if (version == versions.end()) return; // it is not kept any more
    connection.call([&] {
        auto request = requestFor<VersionRestore>(file);
        request->versionId = version->versionId;
        request->versionLabel = version->versionLabel;
        request->ifVersion = damaged;
        return connection.versioning().restoreVersion(std::move(request));
    });
}

void removeDamaged(Connection& connection, const RemotePath& file, const std::string& damaged)
{
    connection.call([&] {
        auto request = requestFor<FileDelete>(file);
        request->ifVersion = damaged;
        return connection.files().deleteFile(std::move(request));
    });
}

Standing takenBack(Connection& connection, const RemotePath& target, bool exists, const std::string& before,
                   const DamagedUpload& damaged)
{
    const auto look = [&] { return standing(connection, target, exists, before, damaged); };
    try {
        const auto found = look();
        if (found != Standing::damaged || damaged.stored.empty() || (exists && before.empty())) return found;
        try {
            exists ? restore(connection, target, before, damaged.stored)
                   : removeDamaged(connection, target, damaged.stored);
        } catch (const std::exception&) { // what stands there then tells more
        }
        return look();
    } catch (const std::exception&) {
        return Standing::damaged;
    }
}

/// What else the reply says does not matter.
template <class Response>
void requireService(Future<std::unique_ptr<Response>>&& reply)
{
    try {
        reply.get();
    } catch (const std::exception&) {
        if (isServiceGone(std::current_exception())) throw;
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
                requireService(std::move(reply));
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
        if (!upload.existing || upload.size == 0 || !upload.sha256.empty()) continue;
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
        stored = mismatch.tag();
        return true;
    });
}

void takeDamagedBack(Connection& connection, const RemotePath& target, bool exists, const std::string& before,
                     const DamagedUpload& damaged)
{
    switch (takenBack(connection, target, exists, before, damaged)) {
    case Standing::taken:
        if (!exists) throw sentDamaged();
        throw NothingDone(ExitCode::failure, std::string(cause) +
                                                 "the content from before is the current one again. Store it "
                                                 "again when that is mended.");
    case Standing::others:
        throw NothingDone(ExitCode::failure, std::string(cause) +
                                                 "somebody else has changed what stands there since, and "
                                                 "that was left as it is.");
    case Standing::arrived:
        throw Failure(ExitCode::failure,
                      "Something between here and the service changes what is answered: what "
                      "stands there now is what was to be stored, but the reply told "
                      "another SHA-256.");
    case Standing::damaged:
        break;
    }
    throw Failure(ExitCode::failure, "Something between here and the service changes what is sent, and what "
                                     "stands there now is damaged. Store it again with --force when that is "
                                     "mended.");
}

namespace {

/// What is replaced while it is read for its digest, and again while it is sent, is refused like what is damaged.
void requireUnchanged(Connection& connection, const Upload& upload, const DamagedUpload& damaged)
{
    if (damaged.sha256.empty() || digestOfOrigin(connection, upload) == damaged.sha256) return;
    throw NothingDone(ExitCode::failure,
                      "It changed while it was being stored; nothing was stored. Store it again.");
}

} // namespace

void sendDamagedAgain(Transfer& transfer, Connection& connection, const std::shared_ptr<const Upload>& upload,
                      Existing existing, const std::string& before,
                      const std::shared_ptr<DamagedUpload>& damaged)
{
    const auto kept = existing == Existing::addVersion ? before : std::string();
    const bool exists = upload->existing.has_value();
    transfer.mayRepeat = [&connection, upload, damaged](const std::exception_ptr& error) {
        if (!isSentDamaged(error)) return false;
        damaged->note(error);
        if (damaged->wasStored && damaged->stored.empty()) return false; // in whose place nobody could say
        damaged->sha256 = digestOfOrigin(connection, *upload);
        return true;
    };
    transfer.wasDone = [&connection, upload, exists, kept, damaged, wasDone = std::move(transfer.wasDone)] {
        const bool isDamaged = damaged->wasStored && standing(connection, upload->remote, exists, kept,
                                                              *damaged) == Standing::damaged;
        return isDamaged ? std::optional(false) : wasDone();
    };
    transfer.failed = [&connection, upload, exists, kept, damaged](const std::exception_ptr& error) {
        damaged->note(error);
        if (damaged->wasStored) takeDamagedBack(connection, upload->remote, exists, kept, *damaged);
        if (isSentDamaged(error)) requireUnchanged(connection, *upload, *damaged);
    };
}

} // namespace tarncli
