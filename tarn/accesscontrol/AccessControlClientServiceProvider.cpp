#include "tarn/accesscontrol/AccessControlClientServiceProvider.h"

#include "tarn/accesscontrol/PermissionMessages.h"
#include "tarn/protocol/HttpExchange.h"
#include "tarn/protocol/ReplyFields.h"
#include "tarn/protocol/ServiceRequest.h"
#include "tarn/protocol/WireText.h"

namespace connector::tarn {
namespace {

using Poco::XML::Document;
using Poco::XML::Element;
using Reply = AccessControlServiceProvider::Reply;

constexpr const char* permissionsPath = "/service/v1/permissions";

constexpr std::tuple grantFields{Field{"PermissionId", &PermissionGrantResponse::permissionId}};

constexpr std::tuple permissionFields{
    Field{"PermissionId", &Permission::permissionId},
    Field{"Operation", &Permission::operation},
    Field{"Status", &Permission::status},
};

constexpr std::tuple resourceFields{
    Field{"Path", &Permission::path},
    Field{"Bucket", &Permission::bucket},
};

/// The only descendant named `tag`, or null.
const Element* onlyElement(const Element& element, const std::string& tag)
{
    const auto found = elementsNamed(element, tag);
    return found.size() == 1 ? found.front() : nullptr;
}

Permission readPermission(const Element& element)
{
    Permission permission;
    readFields(element, permission, permissionFields);
    if (const Element* subject = onlyElement(element, "Subject")) {
        permission.subjectName = fromWire(childText(*subject, "SubjectName"));
    }
    if (const Element* resource = onlyElement(element, "Resource")) {
        readFields(*resource, permission, resourceFields);
    }
    return permission;
}

std::unique_ptr<PermissionListResponse> readPermissionList(const Document& reply)
{
    auto response = std::make_unique<PermissionListResponse>();
    const auto elements = elementsNamed(reply, "Permission");
    response->permissions.reserve(
        elements.size()); // growing by doubling would count thrice in a reply's memory
    for (const Element* element : elements) {
        response->permissions.push_back(readPermission(*element));
    }
    return response;
}

} // namespace

AccessControlClientServiceProvider::AccessControlClientServiceProvider(
    std::shared_ptr<configuration::Configuration> store, const std::string& initialEndpoint)
    : endpoint(initialEndpoint)
    , configuration(std::move(store))
    , cancellers(trackEndpoint(configuration, initialEndpoint, [this](configuration::ConfigValue&& value) {
        endpoint = boost::get<std::string>(std::move(value));
    }))
{
}

Reply AccessControlClientServiceProvider::handle(std::unique_ptr<PermissionGrant>&& request, Address&& to,
                                                 ContextPtr&& context)
{
    auto build = [&] {
        ServiceRequest http = sessionRequest(endpoint, "put", permissionsPath, "", *request);
        http.addText("path", request->path);
        http.addText("bucket", request->bucket);
        http.addText("subject", request->subject);
        http.addText("operation", "READ_ONLY");
        http.addFlag("allowNonExistingUser", request->allowNonExistingUser);
        return http.build();
    };
    return buildAndExchangeXml(build, std::move(to), *context,
                               fieldsReader<PermissionGrantResponse>(grantFields));
}

Reply AccessControlClientServiceProvider::handle(std::unique_ptr<PermissionRevoke>&& request, Address&& to,
                                                 ContextPtr&& context)
{
    auto build = [&] {
        return makeSessionHttpRequest(endpoint, "delete", permissionsPath, request->permissionId, *request);
    };
    return buildAndExchangeXml(build, std::move(to), *context, readNothing<PermissionRevokeResponse>);
}

Reply AccessControlClientServiceProvider::handle(std::unique_ptr<PermissionList>&& request, Address&& to,
                                                 ContextPtr&& context)
{
    auto build = [&] {
        ServiceRequest http = sessionRequest(endpoint, "get", permissionsPath, "", *request);
        // Without a path all grants are meant, whichever bucket the client has filled in.
        if (!request->path.empty()) {
            http.addText("path", request->path);
            http.addText("bucket", request->bucket);
        }
        return http.build();
    };
    return buildAndExchangeXml(build, std::move(to), *context, readPermissionList);
}

} // namespace connector::tarn
