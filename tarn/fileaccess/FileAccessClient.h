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

    ReplyTo<FileCreate> createFile(std::unique_ptr<FileCreate>&& request) override;
    ReplyTo<FileHandleReadOnlyCreate>
    createReadOnlyFileHandle(std::unique_ptr<FileHandleReadOnlyCreate>&& request) override;
    ReplyTo<FileHandleReadWriteCreate>
    createReadWriteFileHandle(std::unique_ptr<FileHandleReadWriteCreate>&& request) override;
    ReplyTo<FileHandleClose> closeFileHandle(std::unique_ptr<FileHandleClose>&& request) override;
    ReplyTo<FileRead> readFile(std::unique_ptr<FileRead>&& request) override;
    ReplyTo<FileContentRead> readFileContent(std::unique_ptr<FileContentRead>&& request) override;
    ReplyTo<FileUpdate> updateFile(std::unique_ptr<FileUpdate>&& request) override;
    ReplyTo<FileContentWrite> writeFileContent(std::unique_ptr<FileContentWrite>&& request) override;
    ReplyTo<FileDelete> deleteFile(std::unique_ptr<FileDelete>&& request) override;
    ReplyTo<Move> move(std::unique_ptr<Move>&& request) override;
    ReplyTo<FileAttributesRead> readFileAttributes(std::unique_ptr<FileAttributesRead>&& request) override;
    ReplyTo<FolderCreate> createFolder(std::unique_ptr<FolderCreate>&& request) override;
    ReplyTo<FolderList> listFolder(std::unique_ptr<FolderList>&& request) override;
    ReplyTo<FolderDelete> deleteFolder(std::unique_ptr<FolderDelete>&& request) override;
    ReplyTo<SharedContentList> listSharedContent(std::unique_ptr<SharedContentList>&& request) override;
    ReplyTo<PublicAccessUrlGet> getPublicAccessUrl(std::unique_ptr<PublicAccessUrlGet>&& request) override;

    std::shared_ptr<FileAccess> getPtr() override { return shared_from_this(); }

private:
    ServiceClient<TarnSession> client;
};

} // namespace connector::tarn
