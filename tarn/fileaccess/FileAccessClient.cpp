#include "tarn/fileaccess/FileAccessClient.h"

namespace connector::tarn {

FileAccessClient::FileAccessClient(std::shared_ptr<TarnSession> session, std::shared_ptr<Connector> connector,
                                   const Address& address)
    : client(std::move(session), connector, address)
{
}

Future<std::unique_ptr<FileCreateResponse>>
FileAccessClient::createFile(std::unique_ptr<FileCreate>&& request)
{
    // A new file always belongs to the session's user, whatever bucket the caller named.
    if (client.canSend(request)) request->bucket = client.user();
    return client.send<FileCreateResponse>(std::move(request));
}

Future<std::unique_ptr<FileHandleReadOnlyCreateResponse>>
FileAccessClient::createReadOnlyFileHandle(std::unique_ptr<FileHandleReadOnlyCreate>&& request)
{
    return client.send<FileHandleReadOnlyCreateResponse>(std::move(request),
                                                         &FileHandleReadOnlyCreate::bucket);
}

Future<std::unique_ptr<FileHandleReadWriteCreateResponse>>
FileAccessClient::createReadWriteFileHandle(std::unique_ptr<FileHandleReadWriteCreate>&& request)
{
    return client.send<FileHandleReadWriteCreateResponse>(std::move(request),
                                                          &FileHandleReadWriteCreate::bucket);
}

Future<std::unique_ptr<FileHandleCloseResponse>>
FileAccessClient::closeFileHandle(std::unique_ptr<FileHandleClose>&& request)
{
    if (client.canSend(request) && request->handleId.empty()) {
        return makeExceptionalFuture<std::unique_ptr<FileHandleCloseResponse>>(
            std::runtime_error(ErrorText::emptyHandleId));
    }
    return client.send<FileHandleCloseResponse>(std::move(request));
}

Future<std::unique_ptr<FileReadResponse>> FileAccessClient::readFile(std::unique_ptr<FileRead>&& request)
{
    return client.send<FileReadResponse>(std::move(request), &FileRead::bucket);
}

Future<std::unique_ptr<FileContentReadResponse>>
FileAccessClient::readFileContent(std::unique_ptr<FileContentRead>&& request)
{
    return client.send<FileContentReadResponse>(std::move(request));
}

Future<std::unique_ptr<FileUpdateResponse>>
FileAccessClient::updateFile(std::unique_ptr<FileUpdate>&& request)
{
    return client.send<FileUpdateResponse>(std::move(request), &FileUpdate::bucket);
}

Future<std::unique_ptr<FileContentWriteResponse>>
FileAccessClient::writeFileContent(std::unique_ptr<FileContentWrite>&& request)
{
    return client.send<FileContentWriteResponse>(std::move(request));
}

Future<std::unique_ptr<FileDeleteResponse>>
FileAccessClient::deleteFile(std::unique_ptr<FileDelete>&& request)
{
    return client.send<FileDeleteResponse>(std::move(request), &FileDelete::bucket);
}

Future<std::unique_ptr<MoveResponse>> FileAccessClient::move(std::unique_ptr<Move>&& request)
{
    return client.send<MoveResponse>(std::move(request), &Move::bucket, &Move::targetBucket);
}

Future<std::unique_ptr<FileAttributesReadResponse>>
FileAccessClient::readFileAttributes(std::unique_ptr<FileAttributesRead>&& request)
{
    return client.send<FileAttributesReadResponse>(std::move(request), &FileAttributesRead::bucket);
}

Future<std::unique_ptr<FolderCreateResponse>>
FileAccessClient::createFolder(std::unique_ptr<FolderCreate>&& request)
{
    return client.send<FolderCreateResponse>(std::move(request), &FolderCreate::bucket);
}

Future<std::unique_ptr<FolderListResponse>>
FileAccessClient::listFolder(std::unique_ptr<FolderList>&& request)
{
    return client.send<FolderListResponse>(std::move(request), &FolderList::bucket);
}

Future<std::unique_ptr<FolderDeleteResponse>>
FileAccessClient::deleteFolder(std::unique_ptr<FolderDelete>&& request)
{
    return client.send<FolderDeleteResponse>(std::move(request), &FolderDelete::bucket);
}

Future<std::unique_ptr<SharedContentListResponse>>
FileAccessClient::listSharedContent(std::unique_ptr<SharedContentList>&& request)
{
    return client.send<SharedContentListResponse>(std::move(request));
}

Future<std::unique_ptr<PublicAccessUrlGetResponse>>
FileAccessClient::getPublicAccessUrl(std::unique_ptr<PublicAccessUrlGet>&& request)
{
    return client.send<PublicAccessUrlGetResponse>(std::move(request), &PublicAccessUrlGet::bucket);
}

} // namespace connector::tarn
