#pragma once

#include "tarn/fileaccess/FileHandleMessages.h"
#include "tarn/fileaccess/FileMessages.h"
#include "tarn/fileaccess/FolderMessages.h"
#include "tarn/protocol/HttpExchange.h"

#include <memory>

/// From the replies of the service to response messages. An element that is missing or occurs twice keeps the
/// field's default; a number that is none throws as std::stoll and std::stoull do.
namespace connector::tarn {

/// For FileCreateResponse and FileUpdateResponse.
template <class Response>
std::unique_ptr<Response> readVersionWritten(const Poco::XML::Document& reply)
{
    auto response = std::make_unique<Response>();
    response->versionId = documentText(reply, "VersionId");
    response->versionLabel = std::stoll(documentText(reply, "VersionLabel", "0"));
    return response;
}

std::unique_ptr<FileReadResponse> readFileContent(http::HttpClientResponse& reply);
std::unique_ptr<FileAttributesReadResponse> readAttributes(const Poco::XML::Document& reply);
std::unique_ptr<FileHandleReadOnlyCreateResponse> readReadOnlyHandle(const Poco::XML::Document& reply);
std::unique_ptr<FileHandleReadWriteCreateResponse> readReadWriteHandle(const Poco::XML::Document& reply);
std::unique_ptr<FolderListResponse> readFolderList(const Poco::XML::Document& reply);
std::unique_ptr<SharedContentListResponse> readSharedContentList(const Poco::XML::Document& reply);
std::unique_ptr<PublicAccessUrlGetResponse> readPublicAccessUrl(const Poco::XML::Document& reply);

} // namespace connector::tarn
