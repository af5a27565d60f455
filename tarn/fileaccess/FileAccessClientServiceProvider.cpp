#include "tarn/fileaccess/FileAccessClientServiceProvider.h"

#include "tarn/fileaccess/detail/FileReplies.h"
#include "tarn/foundation/OneShotPublisher.h"
#include "tarn/protocol/ContentRequest.h"
#include "tarn/protocol/ErrorText.h"
#include "tarn/protocol/ServiceRequest.h"

#include <stdexcept>

namespace connector::tarn {
namespace {

using Reply = FileAccessServiceProvider::Reply;
using ContextPtr = FileAccessServiceProvider::ContextPtr;
using ContentPublisher = reactive_streams::OneShotPublisher<common::DataBuffer>;

constexpr const char* filesystemPath = "/service/v1/filesystem";
constexpr const char* fileHandlePath = "/service/v1/filehandle";
constexpr const char* foldersPath = "/service/v1/folders";
constexpr const char* sharedContentPath = "/service/v1/sharedcontent";
constexpr const char* publicUrlsPath = "/service/v1/public/urls";

template <class Request>
ServiceRequest itemRequest(const std::string& endpoint, const std::string& method,
                           const std::string& servicePath, const Request& request)
{
    return pathRequest(endpoint, method, servicePath, request.path, request.bucket, request);
}

template <class Request>
ServiceRequest fileHandleRequest(const std::string& endpoint, const Request& request)
{
    ServiceRequest http = sessionRequest(endpoint, "put", fileHandlePath, "", request);
    if (!request.path.empty()) http.addText("path", request.path);
    if (!request.bucket.empty()) http.addText("bucket", request.bucket);
    return http;
}

void addHandleOperation(ServiceRequest& http, HandleOperation operation)
{
    switch (operation) {
    case HandleOperation::commitChanges:
        http.addText("handleOperation", "COMMIT_CHANGES");
        break;
    case HandleOperation::abortChanges:
        http.addText("handleOperation", "ABORT_CHANGES");
        break;
    }
}

Reply notImplemented()
{
    return makeExceptionalFuture<std::unique_ptr<Message>>(std::runtime_error(ErrorText::notImplemented));
}

} // namespace

FileAccessClientServiceProvider::FileAccessClientServiceProvider(
    std::shared_ptr<configuration::Configuration> store, std::string initialEndpoint)
    : endpoint(std::move(initialEndpoint))
    , configuration(std::move(store))
    , cancellers(
          trackEndpoint(configuration, std::string(endpoint), [this](configuration::ConfigValue&& value) {
              endpoint = boost::get<std::string>(std::move(value));
          }))
{
}

template <class Response, class Request>
Reply FileAccessClientServiceProvider::write(Request& request, CreateMode mode, Address&& to,
                                             Context& context) const
{
    auto content = std::make_shared<ContentPublisher>(std::move(request.content));
    const ServiceRequest http = contentWriteRequest(endpoint, request, mode, std::move(content));
    return exchangeXml(http.build(), std::move(to), context, fieldsReader<Response>(versionFields));
}

Reply FileAccessClientServiceProvider::handle(std::unique_ptr<FileCreate>&& request, Address&& to,
                                              ContextPtr&& context)
{
    return write<FileCreateResponse>(*request, CreateMode::create, std::move(to), *context);
}

Reply FileAccessClientServiceProvider::handle(std::unique_ptr<FileUpdate>&& request, Address&& to,
                                              ContextPtr&& context)
{
    return write<FileUpdateResponse>(*request, CreateMode::update, std::move(to), *context);
}

Reply FileAccessClientServiceProvider::handle(std::unique_ptr<FileRead>&& request, Address&& to,
                                              ContextPtr&& context)
{
    auto built = contentReadRequest(endpoint, *request).build();
    built->replyBody = http::ReplyBody::content; // as long as the file is, unlike every other reply
    return exchange(std::move(built), std::move(to), *context, readFileContent);
}

Reply FileAccessClientServiceProvider::handle(std::unique_ptr<FileContentRead>&&, Address&&, ContextPtr&&)
{
    return notImplemented();
}

Reply FileAccessClientServiceProvider::handle(std::unique_ptr<FileContentWrite>&&, Address&&, ContextPtr&&)
{
    return notImplemented();
}

Reply FileAccessClientServiceProvider::handle(std::unique_ptr<FileDelete>&& request, Address&& to,
                                              ContextPtr&& context)
{
    ServiceRequest http = itemRequest(endpoint, "delete", filesPath, *request);
    http.addTag("If-Match", request->ifVersion);
    return exchangeXml(http.build(), std::move(to), *context, readNothing<FileDeleteResponse>);
}

Reply FileAccessClientServiceProvider::handle(std::unique_ptr<FileAttributesRead>&& request, Address&& to,
                                              ContextPtr&& context)
{
    ServiceRequest http = itemRequest(endpoint, "get", filesystemPath, *request);
    return exchangeXml(http.build(), std::move(to), *context, readAttributes);
}

Reply FileAccessClientServiceProvider::handle(std::unique_ptr<FileHandleReadOnlyCreate>&& request,
                                              Address&& to, ContextPtr&& context)
{
    ServiceRequest http = fileHandleRequest(endpoint, *request);
    http.addText("accessMode", "readOnly");
    addVersion(http, *request);
    return exchangeXml(
        http.build(), std::move(to), *context,
        fieldsReader<FileHandleReadOnlyCreateResponse>(handleFields<FileHandleReadOnlyCreateResponse>));
}

Reply FileAccessClientServiceProvider::handle(std::unique_ptr<FileHandleReadWriteCreate>&& request,
                                              Address&& to, ContextPtr&& context)
{
    ServiceRequest http = fileHandleRequest(endpoint, *request);
    http.addText("accessMode", "readWrite");
    addCreateMode(http, request->createMode);
    http.addFlag("truncate", request->truncate);
    http.addHeader(contentTypeHeader, request->contentType);
    return exchangeXml(http.build(), std::move(to), *context,
                       fieldsReader<FileHandleReadWriteCreateResponse>(readWriteHandleFields));
}

Reply FileAccessClientServiceProvider::handle(std::unique_ptr<FileHandleClose>&& request, Address&& to,
                                              ContextPtr&& context)
{
    const std::string suffix = request->handleId.empty() ? "" : "/" + request->handleId;
    ServiceRequest http = sessionRequest(endpoint, "delete", fileHandlePath, suffix, *request);
    addHandleOperation(http, request->handleOperation);
    http.addFlag("createNewVersion", request->createNewVersion);
    return exchangeXml(http.build(), std::move(to), *context, readNothing<FileHandleCloseResponse>);
}

Reply FileAccessClientServiceProvider::handle(std::unique_ptr<FolderCreate>&& request, Address&& to,
                                              ContextPtr&& context)
{
    ServiceRequest http = itemRequest(endpoint, "put", foldersPath, *request);
    return exchangeXml(http.build(), std::move(to), *context, readNothing<FolderCreateResponse>);
}

Reply FileAccessClientServiceProvider::handle(std::unique_ptr<FolderList>&& request, Address&& to,
                                              ContextPtr&& context)
{
    ServiceRequest http = itemRequest(endpoint, "get", foldersPath, *request);
    return exchange(http.build(), std::move(to), *context, readFolderList);
}

Reply FileAccessClientServiceProvider::handle(std::unique_ptr<FolderDelete>&& request, Address&& to,
                                              ContextPtr&& context)
{
    ServiceRequest http = itemRequest(endpoint, "delete", foldersPath, *request);
    http.addFlag("forceRecursive", request->forceRecursive);
    return exchangeXml(http.build(), std::move(to), *context, readNothing<FolderDeleteResponse>);
}

Reply FileAccessClientServiceProvider::handle(std::unique_ptr<Move>&& request, Address&& to,
                                              ContextPtr&& context)
{
    ServiceRequest http = itemRequest(endpoint, "put", filesystemPath, *request);
    http.addText("targetPath", request->targetPath);
    http.addText("targetBucket", request->targetBucket);
    http.addFlag("moveTargetOverwrite", request->moveTargetOverwrite);
    return exchangeXml(http.build(), std::move(to), *context, readNothing<MoveResponse>);
}

Reply FileAccessClientServiceProvider::handle(std::unique_ptr<SharedContentList>&& request, Address&& to,
                                              ContextPtr&& context)
{
    ServiceRequest http = sessionRequest(endpoint, "get", sharedContentPath, "", *request);
    return exchangeXml(http.build(), std::move(to), *context, readSharedContentList);
}

Reply FileAccessClientServiceProvider::handle(std::unique_ptr<PublicAccessUrlGet>&& request, Address&& to,
                                              ContextPtr&& context)
{
    ServiceRequest http = itemRequest(endpoint, "get", publicUrlsPath, *request);
    return exchangeXml(http.build(), std::move(to), *context,
                       fieldsReader<PublicAccessUrlGetResponse>(publicUrlFields));
}

} // namespace connector::tarn
