#pragma once

#include "tarn/fileaccess/FileHandleMessages.h"
#include "tarn/fileaccess/FileMessages.h"
#include "tarn/fileaccess/FolderMessages.h"
#include "tarn/protocol/ReplyTo.h"

namespace connector::tarn {

/// Access to the files and folders of the service.
///
/// Each operation takes the request over, sends it, and returns at once. Its future is resolved on one of the
/// host's delivery threads with the response, or with the failure that the request's own comment tells. Bad
/// arguments come back as a future that has failed already, and the request then stays with the caller.
/// Dropping a future stops nothing at the service.
class TARN_API FileAccess {
public:
    virtual ~FileAccess() = default;

    virtual ReplyTo<FileCreate> createFile(std::unique_ptr<FileCreate>&& request) = 0;
    virtual ReplyTo<FileHandleReadOnlyCreate>
    createReadOnlyFileHandle(std::unique_ptr<FileHandleReadOnlyCreate>&& request) = 0;
    virtual ReplyTo<FileHandleReadWriteCreate>
    createReadWriteFileHandle(std::unique_ptr<FileHandleReadWriteCreate>&& request) = 0;
    virtual ReplyTo<FileHandleClose> closeFileHandle(std::unique_ptr<FileHandleClose>&& request) = 0;
    virtual ReplyTo<FileRead> readFile(std::unique_ptr<FileRead>&& request) = 0;
    virtual ReplyTo<FileContentRead> readFileContent(std::unique_ptr<FileContentRead>&& request) = 0;
    virtual ReplyTo<FileUpdate> updateFile(std::unique_ptr<FileUpdate>&& request) = 0;
    virtual ReplyTo<FileContentWrite> writeFileContent(std::unique_ptr<FileContentWrite>&& request) = 0;
    virtual ReplyTo<FileDelete> deleteFile(std::unique_ptr<FileDelete>&& request) = 0;
    virtual ReplyTo<Move> move(std::unique_ptr<Move>&& request) = 0;
    virtual ReplyTo<FileAttributesRead> readFileAttributes(std::unique_ptr<FileAttributesRead>&& request) = 0;
    virtual ReplyTo<FolderCreate> createFolder(std::unique_ptr<FolderCreate>&& request) = 0;
    virtual ReplyTo<FolderList> listFolder(std::unique_ptr<FolderList>&& request) = 0;
    virtual ReplyTo<FolderDelete> deleteFolder(std::unique_ptr<FolderDelete>&& request) = 0;
    virtual ReplyTo<SharedContentList> listSharedContent(std::unique_ptr<SharedContentList>&& request) = 0;
    virtual ReplyTo<PublicAccessUrlGet> getPublicAccessUrl(std::unique_ptr<PublicAccessUrlGet>&& request) = 0;

    /// @throws std::bad_weak_ptr when no shared_ptr owns the object
    virtual std::shared_ptr<FileAccess> getPtr() = 0;
};

} // namespace connector::tarn
