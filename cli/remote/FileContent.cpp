#include "cli/remote/FileContent.h"

#include "cli/machine/Memory.h"
#include "cli/remote/Answer.h"
#include "cli/remote/Requests.h"

namespace tarncli {

using namespace connector::tarn;
using connector::Future;
using Reply = std::unique_ptr<FileReadResponse>;

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

Future<Reply> requestContent(Connection& connection, const RemotePath& file, const VersionInfo& version)
{
    auto request = requestFor<FileRead>(file);
    static_cast<VersionInfo&>(*request) = version;
    return connection.files().readFile(std::move(request));
}

Reply readContent(Connection& connection, const RemotePath& file, const VersionInfo& version)
{
    for (bool again = false;; again = true) {
        const auto size = naming(file, [&] { return sizeOf(connection, file, version); });
        requireMemory(file.quoted(), size);
        auto reply = naming(
            file, [&] { return connection.call([&] { return requestContent(connection, file, version); }); });
        if (reply->content.size == size) return reply;
        // Another may have replaced the file between the two requests; the next pair fits, or the service
        // is wrong.
        if (again) throw about(file.quoted(), SizeDiffers(reply->content.size, size));
    }
}

} // namespace tarncli
