#pragma once

#include "tarn/foundation/EndpointTracking.h"
#include "tarn/transfer/FileTransferServiceProvider.h"

namespace connector::tarn {

/// Answers the transfer messages over HTTP, one HTTP request each.
///
/// Follows the endpoint in the configuration. The endpoint is written and read without a lock: let it settle
/// before requests are made. Replies are read on the threads that bring them and touch no state of the provider.
/// What keeps a request from being built, such as malformed UTF-16, is thrown by `handle`; every later failure
/// arrives through the future.
class TARN_API FileTransferClientServiceProvider : public FileTransferServiceProvider {
public:
    /// @param configuration  may be null: the endpoint then never changes
    /// @param endpoint       base URL of the service until the configuration says otherwise
    /// @throws whatever the configuration throws
    FileTransferClientServiceProvider(std::shared_ptr<configuration::Configuration> configuration,
                                      std::string endpoint);

    Reply handle(std::unique_ptr<FileUpload>&& request, Address&& to, ContextPtr&& context) override;
    Reply handle(std::unique_ptr<FileDownload>&& request, Address&& to, ContextPtr&& context) override;

private:
    std::string endpoint;
    std::shared_ptr<configuration::Configuration> configuration;
    Cancellers cancellers;
};

} // namespace connector::tarn
