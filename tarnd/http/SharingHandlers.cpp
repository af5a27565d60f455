#include "tarnd/http/Handlers.h"
#include "tarnd/http/ItemRecords.h"
#include "tarnd/http/Sentences.h"

namespace tarnd {

namespace {

/// Permissions name their item in the query, not in the path.
Location itemInQuery(const Parameters& query)
{
    return {ItemPath::fromText(query.text("path")), query.text("bucket")};
}

std::vector<Permission> permissionsFor(Call& call)
{
    const auto& query = call.request.query();
    auto& permissions = call.store.permissions();
    return query.text("path").empty() ? permissions.list(call.caller)
                                      : permissions.list(call.caller, itemInQuery(query));
}

void writePermission(XmlWriter& xml, const Permission& permission)
{
    xml.text("PermissionId", permission.id);
    xml.element("Subject", [&] { xml.text("SubjectName", permission.subject); });
    writeResource(xml, permission.path, permission.bucket);
    xml.text("Operation", permission.operation);
    xml.text("Status", permission.status);
}

void writeSharedItems(XmlWriter& xml, std::string_view list, std::string_view record,
                      const std::vector<SharedItem>& items)
{
    xml.element(list, [&] {
        for (const auto& shared : items)
            xml.element(record, [&] {
                writeItem(xml, shared.item);
                writeResource(xml, shared.path, shared.bucket);
            });
    });
}

std::string urlOf(const Call& call, const std::string& token)
{
    return call.publicUrl + "/public/" + token;
}

/// A link that does not end has no "Expires".
void writeLink(XmlWriter& xml, const std::string& id, const std::string& url, std::int64_t expires)
{
    xml.text("PublicLinkId", id);
    xml.text("PublicAccessUrl", url);
    if (expires != 0) xml.number("Expires", expires);
}

} // namespace

Reply grantPermission(Call& call)
{
    const auto& query = call.request.query();
    // The only kind of grant there is: whoever asks for another must not get this one.
    if (query.required("operation") != "READ_ONLY") throw sentences::badParameter("operation", "READ_ONLY");
    XmlWriter xml("Response");
    xml.text("PermissionId",
             call.store.permissions().grant(call.caller, itemInQuery(query), query.required("subject"),
                                            query.flag("allowNonExistingUser")));
    return xmlReply(std::move(xml));
}

Reply revokePermission(Call& call)
{
    call.store.permissions().revoke(call.caller, idOf(call));
    return doneReply();
}

Reply listPermissions(Call& call)
{
    const auto permissions = permissionsFor(call);
    XmlWriter xml("Response");
    for (const auto& permission : permissions)
        xml.element("Permission", [&] { writePermission(xml, permission); });
    return xmlReply(std::move(xml));
}

Reply listSharedContent(Call& call)
{
    const auto shared = call.store.sharedContent().list(call.caller);
    XmlWriter xml("Response");
    for (const auto& user : shared)
        xml.element("SharedContent", [&] {
            xml.text("SharedByUserId", user.user);
            writeSharedItems(xml, "SharedFiles", "SharedFile", user.files);
            writeSharedItems(xml, "SharedFolders", "SharedFolder", user.folders);
        });
    return xmlReply(std::move(xml));
}

Reply getPublicUrl(Call& call)
{
    XmlWriter xml("Response");
    xml.text("PublicAccessUrl", urlOf(call, call.store.links().get(call.caller, itemOf(call))));
    return xmlReply(std::move(xml));
}

Reply createPublicLink(Call& call)
{
    const auto expires = call.request.query().number("expires").value_or(0);
    const auto token = call.store.links().get(call.caller, itemOf(call), expires);
    XmlWriter xml("Response");
    writeLink(xml, PublicLinks::idOf(token), urlOf(call, token), expires);
    return xmlReply(std::move(xml));
}

Reply listPublicLinks(Call& call)
{
    const auto links = call.store.links().list(call.caller);
    XmlWriter xml("Response");
    for (const auto& link : links)
        xml.element("PublicLink", [&] {
            writeLink(xml, link.id, urlOf(call, link.token), link.expires);
            xml.text("Type", link.kind == ItemKind::folder ? "FOLDER" : "FILE");
            writeResource(xml, link.path, link.user);
        });
    return xmlReply(std::move(xml));
}

Reply revokePublicLink(Call& call)
{
    call.store.links().revoke(call.caller, idOf(call));
    return doneReply();
}

} // namespace tarnd
