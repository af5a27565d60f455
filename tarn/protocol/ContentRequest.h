#pragma once

#include "tarn/protocol/CreateMode.h"
#include "tarn/protocol/ReplyFields.h"
#include "tarn/protocol/ServiceRequest.h"
#include "tarn/protocol/VersionInfo.h"

#include <string>
#include <tuple>

/// The requests that carry the content of a file, and what the service answers to those that store it.
namespace connector::tarn {

inline constexpr const char* filesPath = "/service/v1/files";

/// What both kinds of write answer.
inline constexpr std::tuple versionFields{
    Field{"VersionId", &VersionInfo::versionId},
    Field{"VersionLabel", &VersionInfo::versionLabel},
};

/// A label names nothing without its id, so both go out or neither.
TARN_API void addVersion(ServiceRequest& http, const VersionInfo& version);

/// A number that is none of the modes sends no mode, and the service decides.
TARN_API void addCreateMode(ServiceRequest& http, CreateMode mode);

/// PUT of the content of the file that `request` names. @throws as pathRequest
template <class Request>
ServiceRequest contentWriteRequest(const std::string& endpoint, const Request& request, CreateMode mode,
                                   http::BodyPublisher content)
{
    ServiceRequest http = pathRequest(endpoint, "put", filesPath, request.path, request.bucket, request);
    addCreateMode(http, mode);
    http.addFlag("createNewVersion", request.createNewVersion);
    http.addHeader(contentTypeHeader, request.contentType);
    http.setBody(std::move(content));
    return http;
}

/// GET of the content of the file, and of the version if any, that `request` names. @throws as pathRequest
template <class Request>
ServiceRequest contentReadRequest(const std::string& endpoint, const Request& request)
{
    ServiceRequest http = pathRequest(endpoint, "get", filesPath, request.path, request.bucket, request);
    addVersion(http, request);
    return http;
}

} // namespace connector::tarn
