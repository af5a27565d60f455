#pragma once

#include "tarn/fileaccess/FileAccessServiceProvider.h"
#include "tarn/foundation/EndpointTracking.h"
#include "tarn/protocol/CreateMode.h"

namespace connector::tarn {

/// Answers the file messages over HTTP, one HTTP request each.
///
/// Follows the endpoint in the configuration. The endpoint is written and read without a lock: let it settle
/// before requests are made. Replies are read on the thread that completes the HTTP exchange and touch no
/// state of the provider. What keeps a request from being built, such as malformed UTF-16, is thrown by
/// `handle`; every later failure arrives through the future.
class TARN_API FileAccessClientServiceProvider : public FileAccessServiceProvider {
public:
    /// @param configuration  may be null: the endpoint then never changes
    /// @param endpoint       base URL of the service until the configuration says otherwise
    /// @throws whatever the configuration throws
    FileAccessClientServiceProvider(std::shared_ptr<configuration::Configuration> configuration,
                                    std::string endpoint);

    Reply handle(std::unique_ptr<FileCreate>&& request, Address&& to, ContextPtr&& context) override;
    Reply handle(std::unique_ptr<FileUpdate>&& request, Address&& to, ContextPtr&& context) override;
    Reply handle(std::unique_ptr<FileRead>&& request, Address&& to, ContextPtr&& context) override;
    Reply handle(std::unique_ptr<FileContentRead>&& request, Address&& to, ContextPtr&& context) override;
    Reply handle(std::unique_ptr<FileContentWrite>&& request, Address&& to, ContextPtr&& context) override;
    Reply handle(std::unique_ptr<FileDelete>&& request, Address&& to, ContextPtr&& context) override;
    Reply handle(std::unique_ptr<FileAttributesRead>&& request, Address&& to, ContextPtr&& context) override;
    Reply handle(std::unique_ptr<FileHandleReadOnlyCreate>&& request, Address&& to,
                 ContextPtr&& context) override;
    Reply handle(std::unique_ptr<FileHandleReadWriteCreate>&& request, Address&& to,
                 ContextPtr&& context) override;
    Reply handle(std::unique_ptr<FileHandleClose>&& request, Address&& to, ContextPtr&& context) override;
    Reply handle(std::unique_ptr<FolderCreate>&& request, Address&& to, ContextPtr&& context) override;
    Reply handle(std::unique_ptr<FolderList>&& request, Address&& to, ContextPtr&& context) override;
    Reply handle(std::unique_ptr<FolderDelete>&& request, Address&& to, ContextPtr&& context) override;
    Reply handle(std::unique_ptr<Move>&& request, Address&& to, ContextPtr&& context) override;
    Reply handle(std::unique_ptr<SharedContentList>&& request, Address&& to, ContextPtr&& context) override;
    Reply handle(std::unique_ptr<PublicAccessUrlGet>&& request, Address&& to, ContextPtr&& context) override;

private:
    template <class Response, class Request>
    Reply write(Request& request, CreateMode mode, Address&& to, Context& context) const;

    std::string endpoint;
    std::shared_ptr<configuration::Configuration> configuration;
    Cancellers cancellers;
};

} // namespace connector::tarn
