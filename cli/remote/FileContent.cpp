#include "cli/remote/FileContent.h"

#include "cli/machine/Memory.h"
#include "cli/remote/Answer.h"
#include "cli/remote/ContentInMemory.h"
#include "cli/remote/ContentReceiver.h"
#include "cli/remote/Requests.h"
#include "cli/service/ErrorMapping.h"
#include "tarn/foundation/Composition.h"
#include "tarn/transfer/DigestMismatch.h"
#include "tarn/transfer/PartMismatch.h"

namespace tarncli {

using namespace connector::tarn;
using connector::Future;

namespace {

/// No list tells the size of an earlier version, but a handle on it does.
std::uint64_t sizeOfVersion(Connection& connection, const RemotePath& file, const VersionInfo& version)
{
    const auto handle = connection.call([&] {
        auto request = requestFor<FileHandleReadOnlyCreate>(file);
        static_cast<VersionInfo&>(*request) = version;
        return connection.files().createReadOnlyFileHandle(std::move(request));
    });
    requireTold(!handle->fileHandleId.empty(), "the id of a file handle");
    connection.call([&] {
        auto request = std::make_unique<FileHandleClose>();
        request->handleId = handle->fileHandleId;
        request->handleOperation = HandleOperation::abortChanges;
        return connection.files().closeFileHandle(std::move(request));
    });
    return handle->fileSize;
}

} // namespace

SizeDiffers::SizeDiffers(std::uint64_t arrived, std::uint64_t told)
    : Failure(ExitCode::failure, "The service sent " + std::to_string(arrived) +
                                     " bytes of a file that has " + std::to_string(told) + ".")
{
}

std::uint64_t sizeOf(Connection& connection, const RemotePath& file, const VersionInfo& version)
{
    if (!version.versionId.empty()) return sizeOfVersion(connection, file, version);
    const auto attributes = readAttributes(connection, file);
    if (isFolder(attributes)) throw Failure(ExitCode::conflict, "It is a folder, not a file.");
    return attributes.size;
}

namespace {

/// Notes what a reply tells of the content. One that goes on with it, and does not tell it again, changes nothing.
void noteHead(const FileDownloadHead& head, ContentTarget& target)
{
    const bool isBeginning = head.offset == 0;
    if (isBeginning || !head.versionId.empty()) target.setVersion(head.versionId);
    if (isBeginning || !head.sha256.empty()) target.setSha256(head.sha256);
}

/// For what the last reply alone cannot verify: an earlier one may have told the digest.
void requireWhole(ContentTarget& target, std::uint64_t size)
{
    const auto& told = target.sha256();
    if (told.empty()) {
        if (target.held() != size) throw SizeDiffers(target.held(), size);
        return;
    }
    if (const auto found = target.hash()->hex(); found != told)
        throw DigestMismatch("What has arrived is not what the service said it has: its SHA-256 is " + found +
                             ", not " + told + ". Fetch it again.");
}

/// Why all of it comes when the rest was asked for.
std::string whyWhole(const FileDownloadHead& head, const ContentTarget& target, const RemotePath& file)
{
    const bool isOther = !head.versionId.empty() && head.versionId != target.version();
    return isOther ? file.quoted() + " had changed since a part of it was fetched"
                   : "The service does not send the rest of " + file.quoted() + " alone";
}

Future<std::string> requestRest(Connection& connection, const RemotePath& file, const VersionInfo& version,
                                std::uint64_t size, const std::shared_ptr<ContentTarget>& target)
{
    auto request = requestFor<FileDownload>(file);
    static_cast<VersionInfo&>(*request) = version;
    request->offset = target->held();
    request->hash = target->hash();
    if (request->offset > 0) request->ifVersion = target->version();
    request->content = target->subscriber();
    request->onHead = [file, target, size](const FileDownloadHead& head) {
        if (head.offset != target->held()) target->startOver(whyWhole(head, *target, file));
        noteHead(head, *target);
        target->limitTo(head.totalSize ? std::nullopt : std::optional(size));
        // With a digest, what comes is compared with that: the file may well have been replaced since it was listed.
        if (target->sha256().empty() && head.totalSize && *head.totalSize != size)
            throw SizeDiffers(*head.totalSize, size);
    };
    return connection.contents()
        .downloadFile(std::move(request))
        .then([target, size](Future<std::unique_ptr<FileDownloadResponse>>&& reply) {
            const auto response = reply.get();
            if (!response->verified) requireWhole(*target, size);
            return target->sha256();
        });
}

/// Why the target has not the beginning of the file; empty: it was something else that went wrong.
std::string whyNoBeginning(const std::exception_ptr& error, const RemotePath& file)
{
    if (isRefusal(error, reasons::rangeOutside))
        return "The part of " + file.quoted() + " that was here is longer than the file";
    if (isError<PartMismatch>(error))
        return "The service does not go on where the part of " + file.quoted() + " ends that was here";
    return {};
}

} // namespace

Future<std::string> requestContent(Connection& connection, const RemotePath& file, const VersionInfo& version,
                                   std::uint64_t size, const std::shared_ptr<ContentTarget>& target)
{
    if (target->version().empty() && target->held() > 0)
        target->startOver("Nothing tells of which version the part of " + file.quoted() +
                          " was that was here");
    const bool isRest = target->held() > 0;
    auto content = requestRest(connection, file, version, size, target);
    if (!isRest) return content;
    return std::move(content) | connector::recover([=, &connection](const std::exception_ptr& error) {
               const auto why = whyNoBeginning(error, file);
               if (why.empty()) std::rethrow_exception(error);
               target->startOver(why);
               return requestRest(connection, file, version, size, target);
           });
}

bool isPartWrong(const std::exception_ptr& error)
{
    return isError<DigestMismatch>(error) || isError<SizeDiffers>(error);
}

Future<std::string> requestDigest(Connection& connection, const RemotePath& file, const VersionInfo& version)
{
    auto request = requestFor<FileDownload>(file);
    static_cast<VersionInfo&>(*request) = version;
    request->length = 1; // the head tells it of all
    request->content = std::make_shared<ContentReceiver>([](std::string_view) {});
    return connection.contents()
        .downloadFile(std::move(request))
        .then([](Future<std::unique_ptr<FileDownloadResponse>>&& reply) { return reply.get()->sha256; });
}

std::string digestOf(Connection& connection, const RemotePath& file)
{
    return connection.call([&] { return requestDigest(connection, file); });
}

Future<CurrentContent> requestCurrent(Connection& connection, const RemotePath& file, std::uint64_t size)
{
    auto request = requestFor<FileDownload>(file);
    if (size > 0) request->length = 1; // the head tells it of all
    request->content = std::make_shared<ContentReceiver>([](std::string_view) {});
    return connection.contents()
        .downloadFile(std::move(request))
        .then([](Future<std::unique_ptr<FileDownloadResponse>>&& reply) {
            const auto head = reply.get();
            return CurrentContent{head->totalSize.value_or(0), head->versionId, head->sha256};
        });
}

CurrentContent currentOf(Connection& connection, const RemotePath& file)
{
    const auto size = sizeOf(connection, file, {});
    return connection.call([&] { return requestCurrent(connection, file, size); });
}

namespace {

/// Asks for the size of a file, and with it for its content. Another may have replaced the file between the two
/// requests; the next pair fits, or the service is wrong.
template <class Fetch>
void withSize(Connection& connection, const RemotePath& file, const VersionInfo& version, Fetch fetch)
{
    naming(file, [&] {
        try {
            fetch(sizeOf(connection, file, version));
        } catch (const SizeDiffers&) {
            fetch(sizeOf(connection, file, version));
        }
    });
}

} // namespace

void fetchContent(Connection& connection, const RemotePath& file, const VersionInfo& version,
                  const std::shared_ptr<ContentTarget>& target)
{
    withSize(connection, file, version, [&](std::uint64_t size) {
        connection.call([&] { return requestContent(connection, file, version, size, target); });
    });
}

std::string readContent(Connection& connection, const RemotePath& file, const VersionInfo& version)
{
    const auto target = std::make_shared<ContentInMemory>();
    withSize(connection, file, version, [&](std::uint64_t size) {
        requireMemory(file.quoted(), size);
        target->expect(size);
        connection.call([&] { return requestContent(connection, file, version, size, target); });
    });
    return target->take();
}

} // namespace tarncli
