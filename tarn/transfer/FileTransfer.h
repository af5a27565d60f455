#pragma once

#include "tarn/protocol/ReplyTo.h"
#include "tarn/transfer/FileTransferMessages.h"

namespace connector::tarn {

/// Moves contents of any size to and from the service, in constant memory where the host can.
///
/// Each operation takes the request over, sends it, and returns at once. Its future is resolved on one of the
/// host's delivery threads with the response, or with the failure that the request's own comment tells. Bad
/// arguments come back as a future that has failed already, and the request then stays with the caller.
/// Dropping a future stops nothing; the request's `stop` does.
class TARN_API FileTransfer {
public:
    virtual ~FileTransfer() = default;

    virtual ReplyTo<FileUpload> uploadFile(std::unique_ptr<FileUpload>&& request) = 0;
    virtual ReplyTo<FileDownload> downloadFile(std::unique_ptr<FileDownload>&& request) = 0;

    /// @throws std::bad_weak_ptr when no shared_ptr owns the object
    virtual std::shared_ptr<FileTransfer> getPtr() = 0;
};

} // namespace connector::tarn
