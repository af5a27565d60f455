#pragma once

#include "tarn/fileaccess/FileHandleMessages.h"
#include "tarn/fileaccess/FileMessages.h"
#include "tarn/fileaccess/FolderMessages.h"
#include "tarn/protocol/HttpExchange.h"
#include "tarn/protocol/ReplyFields.h"

#include <memory>

/// From the replies of the service to response messages. An element that is missing or occurs twice keeps the
/// field's default; a malformed number throws as std::stoll and std::stoull do.
namespace connector::tarn {

template <class Handle>
inline constexpr std::tuple handleFields{
    Field{"FileHandleId", &Handle::fileHandleId},
    Field{"FileSize", &Handle::fileSize},
};

inline constexpr auto readWriteHandleFields =
    std::tuple_cat(handleFields<FileHandleReadWriteCreateResponse>,
                   std::tuple{Field{"FileCreated", &FileHandleReadWriteCreateResponse::fileCreated}});

inline constexpr std::tuple publicUrlFields{Field{"PublicAccessUrl", &PublicAccessUrlGetResponse::url}};

std::unique_ptr<FileReadResponse> readFileContent(http::HttpClientResponse& reply);
std::unique_ptr<FileAttributesReadResponse> readAttributes(const Poco::XML::Document& reply);
std::unique_ptr<FolderListResponse> readFolderList(http::HttpClientResponse& reply);
std::unique_ptr<SharedContentListResponse> readSharedContentList(const Poco::XML::Document& reply);

} // namespace connector::tarn
