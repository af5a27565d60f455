#include "tarn/versioning/VersioningClientServiceProvider.h"

#include "tarn/protocol/HttpExchange.h"
#include "tarn/protocol/ServiceRequest.h"
#include "tarn/protocol/WireText.h"
#include "tarn/versioning/VersionMessages.h"

namespace connector::tarn {
namespace {

using Poco::XML::Document;
using Poco::XML::Element;

/// A call about the versions of the file at `path`; the bucket is never part of it.
ServiceRequest versionRequest(const std::string& endpoint, const std::string& method,
                              const std::u16string& path, const SessionRequest& request)
{
    return pathRequest(endpoint, method, "/service/v1/versions/files", path, {}, request);
}

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

VersionSummary readVersionSummary(const Element& element)
{
    VersionSummary version;
    version.versionId = childText(element, "VersionId");
    version.created = std::stoull(childText(element, "Created", "0"));
    version.versionLabel = std::stoll(childText(element, "VersionLabel", "0"));
    return version;
}

std::unique_ptr<VersionListResponse> readVersionList(const Document& reply)
{
    auto response = std::make_unique<VersionListResponse>();
    response->name = fromWire(documentText(reply, "Name"));
    for (const Element* element : elementsNamed(reply, "VersionSummary")) {
        response->versions.push_back(readVersionSummary(*element));
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

Future<std::unique_ptr<Message>>
VersioningClientServiceProvider::handle(std::unique_ptr<VersionRestore>&& request, Address&& to,
                                        std::shared_ptr<Context>&& context)
{
    auto build = [&] {
        ServiceRequest http = versionRequest(endpoint, "put", request->path, *request);
        http.addText("versionId", request->versionId);
        http.addNumber("versionLabel", request->versionLabel);
        http.addFlag("createNewVersion", request->createNewVersion);
        return http.build();
    };
    const VersionInfo asked{request->versionId, request->versionLabel};
    return buildAndExchangeXml(build, std::move(to), *context,
                               [asked](const Document& reply) { return readRestore(reply, asked); });
}

Future<std::unique_ptr<Message>>
VersioningClientServiceProvider::handle(std::unique_ptr<VersionList>&& request, Address&& to,
                                        std::shared_ptr<Context>&& context)
{
    auto build = [&] { return versionRequest(endpoint, "get", request->path, *request).build(); };
    return buildAndExchangeXml(build, std::move(to), *context, readVersionList);
}

} // namespace connector::tarn
