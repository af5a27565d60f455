#include "tarn/versioning/VersioningClientServiceProvider.h"

#include "tarn/protocol/HttpExchange.h"
#include "tarn/protocol/ReplyFields.h"
#include "tarn/protocol/ServiceRequest.h"
#include "tarn/versioning/VersionMessages.h"

namespace connector::tarn {
namespace {

using Poco::XML::Document;
using Poco::XML::Element;
using Reply = VersioningServiceProvider::Reply;

constexpr std::tuple listFields{Field{"Name", &VersionListResponse::name}};

constexpr std::tuple versionFields{
    Field{"VersionId", &VersionSummary::versionId},
    Field{"Created", &VersionSummary::created},
    Field{"VersionLabel", &VersionSummary::versionLabel},
};

/// A call about the versions of the file at `path`; the bucket is never part of it.
ServiceRequest versionRequest(const std::string& endpoint, const std::string& method,
                              const std::u16string& path, const SessionRequest& request)
{
    return pathRequest(endpoint, method, "/service/v1/versions/files", path, {}, request);
}

/// What the reply does not tell is taken from the request. The label is read as an unsigned number, unlike that of
/// a list.
std::unique_ptr<VersionRestoreResponse> readRestore(const Document& reply, const VersionInfo& asked)
{
    auto response = std::make_unique<VersionRestoreResponse>();
    const std::string id = documentText(reply, "VersionId");
    const std::string label = documentText(reply, "VersionLabel");
    response->versionId = id.empty() ? asked.versionId : id;
    response->versionLabel =
        label.empty() ? asked.versionLabel : static_cast<std::int64_t>(std::stoull(label));
    return response;
}

std::unique_ptr<VersionListResponse> readVersionList(const Document& reply)
{
    auto response = std::make_unique<VersionListResponse>();
    readFields(reply, *response, listFields);
    for (const Element* element : elementsNamed(reply, "VersionSummary")) {
        readFields(*element, response->versions.emplace_back(), versionFields);
    }
    return response;
}

} // namespace

VersioningClientServiceProvider::VersioningClientServiceProvider(
    std::shared_ptr<configuration::Configuration> store, const std::string& initialEndpoint)
    : endpoint(initialEndpoint)
    , configuration(std::move(store))
    , cancellers(trackEndpoint(configuration, initialEndpoint, [this](configuration::ConfigValue&& value) {
        endpoint = boost::get<std::string>(std::move(value));
    }))
{
}

Reply VersioningClientServiceProvider::handle(std::unique_ptr<VersionRestore>&& request, Address&& to,
                                              ContextPtr&& context)
{
    auto build = [&] {
        ServiceRequest http = versionRequest(endpoint, "put", request->path, *request);
        http.addText("versionId", request->versionId);
        http.addNumber("versionLabel", request->versionLabel);
        http.addFlag("createNewVersion", request->createNewVersion);
        http.addTag("If-Match", request->ifVersion);
        return http.build();
    };
    // A copy: the request is gone by the time the reply comes.
    const VersionInfo asked{request->versionId, request->versionLabel};
    return buildAndExchangeXml(build, std::move(to), *context,
                               [asked](const Document& reply) { return readRestore(reply, asked); });
}

Reply VersioningClientServiceProvider::handle(std::unique_ptr<VersionList>&& request, Address&& to,
                                              ContextPtr&& context)
{
    auto build = [&] { return versionRequest(endpoint, "get", request->path, *request).build(); };
    return buildAndExchangeXml(build, std::move(to), *context, readVersionList);
}

} // namespace connector::tarn
