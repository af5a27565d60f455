#include "tarnd/http/ContentReply.h"
#include "tarnd/http/Handlers.h"
#include "tarnd/http/ItemRecords.h"
#include "tarnd/http/Sentences.h"

namespace tarnd {

namespace {

CreateMode createModeOf(const Parameters& query)
{
    const auto mode = query.required("createMode");
    if (mode == "CREATE") return CreateMode::create;
    if (mode == "UPDATE") return CreateMode::update;
    if (mode == "CREATE_OR_UPDATE") return CreateMode::createOrUpdate;
    throw sentences::badParameter("createMode", "CREATE, UPDATE or CREATE_OR_UPDATE");
}

FileHandles::CloseOperation closeOperationOf(const Parameters& query)
{
    const auto operation = query.required("handleOperation");
    if (operation == "COMMIT_CHANGES") return FileHandles::CloseOperation::commit;
    if (operation == "ABORT_CHANGES") return FileHandles::CloseOperation::abort;
    throw sentences::badParameter("handleOperation", "COMMIT_CHANGES or ABORT_CHANGES");
}

/// The SHA-256 that the client announces, in base64; empty when it announces none.
std::string announcedDigest(const Request& request)
{
    constexpr std::string_view key = "sha-256=:"; // and ends with another colon
    for (const auto value : request.headerValues("Content-Digest")) {
        const auto found = value.find(key);
        if (found == std::string_view::npos) continue;
        const auto digest = value.substr(found + key.size());
        return std::string(digest.substr(0, digest.find(':')));
    }
    return {};
}

OpenHandle openWith(Call& call, const Location& location, const std::string& accessMode)
{
    const auto& query = call.request.query();
    auto& handles = call.store.handles();
    if (accessMode == "readOnly") return handles.openReadOnly(call.caller, location, versionOf(call));
    if (accessMode == "readWrite")
        return handles.openReadWrite(call.caller, location, createModeOf(query), query.flag("truncate"));
    throw sentences::badParameter("accessMode", "readOnly or readWrite");
}

} // namespace

void beginFile(Call& call)
{
    const auto& query = call.request.query();
    constexpr std::uint64_t shortContent = 64 * 1024; // bytes
    const auto length = call.request.contentLength();
    const bool isComing = !call.request.waitsForContinue() && length && *length <= shortContent;
    const PutOptions options{createModeOf(query), query.flag("createNewVersion"), isComing,
                             announcedDigest(call.request)};
    call.upload = call.store.catalog().put(call.caller, itemOf(call), options, length);
}

Reply putFile(Call& call)
{
    XmlWriter xml("Response");
    writeVersion(xml, call.upload->commit());
    call.caller.isAssumed = false; // the commit has asked for the session
    auto reply = xmlReply(std::move(xml));
    const auto digest = digestField(call.upload->sha256());
    reply.headers = {{"Content-Digest", digest}, {"Repr-Digest", digest}};
    return reply;
}

Reply readFile(Call& call)
{
    return contentReply(call.request, call.store.catalog().read(call.caller, itemOf(call), versionOf(call)));
}

Reply deleteFile(Call& call)
{
    call.store.catalog().deleteFile(call.caller, itemOf(call));
    return doneReply();
}

Reply openHandle(Call& call)
{
    const auto& query = call.request.query();
    const Location location{ItemPath::fromText(query.text("path")), query.text("bucket")};
    const auto handle = openWith(call, location, query.required("accessMode"));
    XmlWriter xml("Response");
    xml.text("FileHandleId", handle.id);
    xml.number("FileSize", handle.size);
    xml.boolean("FileCreated", handle.created);
    return xmlReply(std::move(xml));
}

Reply closeHandle(Call& call)
{
    const auto& query = call.request.query();
    call.store.handles().close(call.caller, idOf(call), closeOperationOf(query),
                               query.flag("createNewVersion"));
    return doneReply();
}

} // namespace tarnd
