#pragma once

#include "tarn/foundation/ServiceProviderAPI.h"

#include <memory>

namespace connector::tarn {

struct FileUpload;
struct FileDownload;

/// What answers the transfer messages. Handlers are called by `deliver`, on the host's delivery threads.
///
/// @param to       address of the HTTP client to send through
/// @param context  the way there
/// @return a future of the operation's response message
class TARN_API FileTransferServiceProvider : public ServiceProviderAPI<FileTransferServiceProvider> {
public:
    virtual Reply handle(std::unique_ptr<FileUpload>&& request, Address&& to, ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<FileDownload>&& request, Address&& to, ContextPtr&& context) = 0;
};

} // namespace connector::tarn
