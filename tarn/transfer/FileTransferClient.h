#pragma once

#include "tarn/protocol/ServiceClient.h"
#include "tarn/session/TarnSession.h"
#include "tarn/transfer/FileTransfer.h"

namespace connector::tarn {

/// FileTransfer through a message framework, within a session.
///
/// May be used from any thread, with any number of transfers in flight. Before sending, each operation fills an empty
/// bucket with the session's user (an upload that creates replaces it always) and overwrites session id, client
/// string and client type with the session's. Without a request, a session or a connector it fails with "Null
/// request, session, or context".
class TARN_API FileTransferClient : public FileTransfer, public std::enable_shared_from_this<FileTransfer> {
public:
    /// @param session    shared with the application; read at each call
    /// @param connector  asked for its context once and not kept; null: every operation fails
    /// @param address    of the transfer service provider
    FileTransferClient(std::shared_ptr<TarnSession> session, std::shared_ptr<Connector> connector,
                       const Address& address);

    ReplyTo<FileUpload> uploadFile(std::unique_ptr<FileUpload>&& request) override;
    ReplyTo<FileDownload> downloadFile(std::unique_ptr<FileDownload>&& request) override;

    std::shared_ptr<FileTransfer> getPtr() override { return shared_from_this(); }

private:
    ServiceClient<TarnSession> client;
};

} // namespace connector::tarn
