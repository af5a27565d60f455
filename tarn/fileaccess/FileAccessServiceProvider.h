#pragma once

#include "tarn/foundation/ServiceProviderAPI.h"

#include <memory>

namespace connector::tarn {

struct FileCreate;
struct FileUpdate;
struct FileRead;
struct FileContentRead;
struct FileContentWrite;
struct FileDelete;
struct FileAttributesRead;
struct FileHandleReadOnlyCreate;
struct FileHandleReadWriteCreate;
struct FileHandleClose;
struct FolderCreate;
struct FolderList;
struct FolderDelete;
struct Move;
struct SharedContentList;
struct PublicAccessUrlGet;

/// What answers the file messages. Handlers are called by `deliver`, on the host's delivery threads.
///
/// @param to       address of the HTTP client to send through
/// @param context  the way there
/// @return a future of the operation's response message
class TARN_API FileAccessServiceProvider : public ServiceProviderAPI<FileAccessServiceProvider> {
public:
    virtual Reply handle(std::unique_ptr<FileCreate>&& request, Address&& to, ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<FileUpdate>&& request, Address&& to, ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<FileRead>&& request, Address&& to, ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<FileContentRead>&& request, Address&& to, ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<FileContentWrite>&& request, Address&& to, ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<FileDelete>&& request, Address&& to, ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<FileAttributesRead>&& request, Address&& to,
                         ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<FileHandleReadOnlyCreate>&& request, Address&& to,
                         ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<FileHandleReadWriteCreate>&& request, Address&& to,
                         ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<FileHandleClose>&& request, Address&& to, ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<FolderCreate>&& request, Address&& to, ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<FolderList>&& request, Address&& to, ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<FolderDelete>&& request, Address&& to, ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<Move>&& request, Address&& to, ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<SharedContentList>&& request, Address&& to,
                         ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<PublicAccessUrlGet>&& request, Address&& to,
                         ContextPtr&& context) = 0;
};

} // namespace connector::tarn
