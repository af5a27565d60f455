#include "tarn/fileaccess/FileAccessClient.h"

namespace connector::tarn {

FileAccessClient::FileAccessClient(std::shared_ptr<TarnSession> session, std::shared_ptr<Connector> connector,
                                   const Address& address)
    : client(std::move(session), connector, address)
{
}

ReplyTo<FileCreate> FileAccessClient::createFile(std::unique_ptr<FileCreate>&& request)
{
    // A new file always belongs to the session's user, whatever bucket the caller named.
    if (client.canSend(request)) request->bucket = client.user();
    return client.send(std::move(request));
}

ReplyTo<FileHandleReadOnlyCreate>
FileAccessClient::createReadOnlyFileHandle(std::unique_ptr<FileHandleReadOnlyCreate>&& request)
{
    return client.send(std::move(request), &FileHandleReadOnlyCreate::bucket);
}

ReplyTo<FileHandleReadWriteCreate>
FileAccessClient::createReadWriteFileHandle(std::unique_ptr<FileHandleReadWriteCreate>&& request)
{
    return client.send(std::move(request), &FileHandleReadWriteCreate::bucket);
}

ReplyTo<FileHandleClose> FileAccessClient::closeFileHandle(std::unique_ptr<FileHandleClose>&& request)
{
    if (client.canSend(request) && request->handleId.empty()) {
        return makeExceptionalFuture<std::unique_ptr<FileHandleCloseResponse>>(
            TarnError(ErrorKind::invalidRequest, ErrorText::emptyHandleId));
    }
    return client.send(std::move(request));
}

ReplyTo<FileRead> FileAccessClient::readFile(std::unique_ptr<FileRead>&& request)
{
    return client.send(std::move(request), &FileRead::bucket);
}

ReplyTo<FileContentRead> FileAccessClient::readFileContent(std::unique_ptr<FileContentRead>&& request)
{
    return client.send(std::move(request));
}

ReplyTo<FileUpdate> FileAccessClient::updateFile(std::unique_ptr<FileUpdate>&& request)
{
    return client.send(std::move(request), &FileUpdate::bucket);
}

ReplyTo<FileContentWrite> FileAccessClient::writeFileContent(std::unique_ptr<FileContentWrite>&& request)
{
    return client.send(std::move(request));
}

ReplyTo<FileDelete> FileAccessClient::deleteFile(std::unique_ptr<FileDelete>&& request)
{
    return client.send(std::move(request), &FileDelete::bucket);
}

ReplyTo<Move> FileAccessClient::move(std::unique_ptr<Move>&& request)
{
    return client.send(std::move(request), &Move::bucket, &Move::targetBucket);
}

ReplyTo<FileAttributesRead>
FileAccessClient::readFileAttributes(std::unique_ptr<FileAttributesRead>&& request)
{
    return client.send(std::move(request), &FileAttributesRead::bucket);
}

ReplyTo<FolderCreate> FileAccessClient::createFolder(std::unique_ptr<FolderCreate>&& request)
{
    return client.send(std::move(request), &FolderCreate::bucket);
}

ReplyTo<FolderList> FileAccessClient::listFolder(std::unique_ptr<FolderList>&& request)
{
    return client.send(std::move(request), &FolderList::bucket);
}

ReplyTo<FolderDelete> FileAccessClient::deleteFolder(std::unique_ptr<FolderDelete>&& request)
{
    return client.send(std::move(request), &FolderDelete::bucket);
}

ReplyTo<SharedContentList> FileAccessClient::listSharedContent(std::unique_ptr<SharedContentList>&& request)
{
    return client.send(std::move(request));
}

ReplyTo<PublicAccessUrlGet>
FileAccessClient::getPublicAccessUrl(std::unique_ptr<PublicAccessUrlGet>&& request)
{
    return client.send(std::move(request), &PublicAccessUrlGet::bucket);
}

} // namespace connector::tarn
