#include "tarn/transfer/FileTransferClient.h"

namespace connector::tarn {

FileTransferClient::FileTransferClient(std::shared_ptr<TarnSession> session,
                                       std::shared_ptr<Connector> connector, const Address& address)
    : client(std::move(session), connector, address)
{
}

ReplyTo<FileUpload> FileTransferClient::uploadFile(std::unique_ptr<FileUpload>&& request)
{
    // A new file always belongs to the session's user, as with FileAccessClient::createFile.
    if (client.canSend(request) && request->createMode == CreateMode::create) request->bucket = client.user();
    return client.send(std::move(request), &FileUpload::bucket);
}

ReplyTo<FileDownload> FileTransferClient::downloadFile(std::unique_ptr<FileDownload>&& request)
{
    return client.send(std::move(request), &FileDownload::bucket);
}

} // namespace connector::tarn
