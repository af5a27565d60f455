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
    taken,   ///< back
    others,  ///< somebody else has changed it since
    arrived, ///< all the same, or nobody knows what it is
};

Standing standing(Connection& connection, const RemotePath& target, const DamagedUpload& damaged)
{
    if (damaged.stored.empty()) return Standing::arrived;
    const auto now = currentOf(connection, target);
    if (now.version != damaged.stored) return Standing::others;
    return now.sha256 == damaged.sha256 ? Standing::arrived : Standing::damaged;
}

void restore(Connection& connection, const RemotePath& file, const std::string& before,
             const std::string& damaged)
{
    const auto versions = versionsOf(connection, file)->versions;
    const auto version = std::ranges::find_if(
        versions, [&](const VersionSummary& each) { return isVersion(before, each.versionId); });
    if (version == versions.end()) throw Failure(ExitCode::notFound, "That version is gone.");
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
    try {
        const auto found = standing(connection, target, damaged);
        if (found != Standing::damaged || (exists && before.empty())) return found;
        exists ? restore(connection, target, before, damaged.stored)
               : removeDamaged(connection, target, damaged.stored);
        return Standing::taken;
    } catch (const std::exception&) {
        const auto error = std::current_exception();
        const bool isOthers =
            isRefusal(error, reasons::contentChanged) || explain(error).code() == ExitCode::notFound;
        return isOthers ? Standing::others : Standing::damaged;
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
    case Standing::damaged:
    case Standing::arrived:
        break;
    }
    throw Failure(ExitCode::failure, "Something between here and the service changes what is sent, and what "
                                     "stands there now is damaged. Store it again with --force when that is "
                                     "mended.");
}

void sendDamagedAgain(Transfer& transfer, Connection& connection, const Upload& upload, Existing existing,
                      const std::string& before, const std::shared_ptr<DamagedUpload>& damaged)
{
    const auto kept = existing == Existing::addVersion ? before : std::string();
    const auto takeBack = [&connection, upload, kept, damaged] {
        takeDamagedBack(connection, upload.remote, upload.existing.has_value(), kept, *damaged);
    };
    transfer.mayRepeat = [&connection, upload, damaged](const std::exception_ptr& error) {
        if (!isSentDamaged(error)) return false;
        damaged->note(error);
        if (damaged->wasStored && damaged->stored.empty()) return false; // in whose place nobody could say
        damaged->sha256 = digestOfOrigin(connection, upload);
        return true;
    };
    transfer.wasDone = [&connection, upload, damaged, wasDone = std::move(transfer.wasDone)] {
        if (damaged->wasStored && standing(connection, upload.remote, *damaged) == Standing::damaged)
            return std::optional(false);
        return wasDone();
    };
    transfer.failed = [takeBack, damaged](const std::exception_ptr& error) {
        damaged->note(error);
        if (damaged->wasStored) takeBack();
    };
}

} // namespace tarncli
