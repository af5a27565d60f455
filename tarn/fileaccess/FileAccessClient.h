#pragma once

#include "tarn/fileaccess/FileAccess.h"
#include "tarn/protocol/ServiceClient.h"
#include "tarn/session/TarnSession.h"

namespace connector::tarn {

/// FileAccess through a message framework, within a session.
///
/// May be used from any thread, with any number of requests in flight. Before sending, each operation fills
/// an empty bucket with the session's user (`move` both of its buckets; `createFile` replaces the bucket
/// always) and overwrites session id, client string and client type with the session's. Without a request, a
/// session or a connector it fails with "Null request, session, or context".
class TARN_API FileAccessClient : public FileAccess, public std::enable_shared_from_this<FileAccess> {
public:
    /// @param session    shared with the application; read at each call
    /// @param connector  asked for its context once and not kept; null: every operation fails
    /// @param address    of the file service provider
    FileAccessClient(std::shared_ptr<TarnSession> session, std::shared_ptr<Connector> connector,
                     const Address& address);

    Future<std::unique_ptr<FileCreateResponse>> createFile(std::unique_ptr<FileCreate>&& request) override;
    Future<std::unique_ptr<FileHandleReadOnlyCreateResponse>>
    createReadOnlyFileHandle(std::unique_ptr<FileHandleReadOnlyCreate>&& request) override;
    Future<std::unique_ptr<FileHandleReadWriteCreateResponse>>
    createReadWriteFileHandle(std::unique_ptr<FileHandleReadWriteCreate>&& request) override;
    Future<std::unique_ptr<FileHandleCloseResponse>>
    closeFileHandle(std::unique_ptr<FileHandleClose>&& request) override;
    Future<std::unique_ptr<FileReadResponse>> readFile(std::unique_ptr<FileRead>&& request) override;
    Future<std::unique_ptr<FileContentReadResponse>>
    readFileContent(std::unique_ptr<FileContentRead>&& request) override;
    Future<std::unique_ptr<FileUpdateResponse>> updateFile(std::unique_ptr<FileUpdate>&& request) override;
    Future<std::unique_ptr<FileContentWriteResponse>>
    writeFileContent(std::unique_ptr<FileContentWrite>&& request) override;
    Future<std::unique_ptr<FileDeleteResponse>> deleteFile(std::unique_ptr<FileDelete>&& request) override;
    Future<std::unique_ptr<MoveResponse>> move(std::unique_ptr<Move>&& request) override;
    Future<std::unique_ptr<FileAttributesReadResponse>>
    readFileAttributes(std::unique_ptr<FileAttributesRead>&& request) override;
    Future<std::unique_ptr<FolderCreateResponse>>
    createFolder(std::unique_ptr<FolderCreate>&& request) override;
    Future<std::unique_ptr<FolderListResponse>> listFolder(std::unique_ptr<FolderList>&& request) override;
    Future<std::unique_ptr<FolderDeleteResponse>>
    deleteFolder(std::unique_ptr<FolderDelete>&& request) override;
    Future<std::unique_ptr<SharedContentListResponse>>
    listSharedContent(std::unique_ptr<SharedContentList>&& request) override;
    Future<std::unique_ptr<PublicAccessUrlGetResponse>>
    getPublicAccessUrl(std::unique_ptr<PublicAccessUrlGet>&& request) override;

    std::shared_ptr<FileAccess> getPtr() override { return shared_from_this(); }

private:
    ServiceClient<TarnSession> client;
};

} // namespace connector::tarn
