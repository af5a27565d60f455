#include "tarnd/http/ConditionFields.h"
#include "tarnd/http/ContentReply.h"
#include "tarnd/http/DigestField.h"
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

/// Whoever sends what he means as a part must not replace the whole.
void requireWhole(const Request& request)
{
    if (!request.headerValues("Content-Range").empty()) throw sentences::partialUpload();
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
    requireWhole(call.request);
    constexpr std::uint64_t shortContent = 64 * 1024; // bytes
    const auto length = call.request.contentLength();
    const bool isComing = !call.request.waitsForContinue() && length && *length <= shortContent;
    const PutOptions options{createModeOf(query), query.flag("createNewVersion"), isComing,
                             announcedSha256(call.request.headerValues("Content-Digest")),
                             conditionOf(call.request)};
    call.upload = call.store.catalog().put(call.caller, itemOf(call), options, length);
}

Reply putFile(Call& call)
{
    // Whoever sends a pipe knows it only at the end.
    call.upload->require(announcedSha256(valuesOf(call.trailers, "Content-Digest")));
    XmlWriter xml("Response");
    writeVersion(xml, call.upload->commit());
    call.caller.isAssumed = false; // the commit has asked for the session
    auto reply = xmlReply(std::move(xml));
    const auto digest = digestField(call.upload->sha256());
    reply.headers = {
        {"ETag", '"' + call.upload->tag() + '"'}, {"Content-Digest", digest}, {"Repr-Digest", digest}};
    return reply;
}

Reply readFile(Call& call)
{
    return contentReply(call.request, call.store.catalog().read(call.caller, itemOf(call), versionOf(call)));
}

Reply deleteFile(Call& call)
{
    call.store.catalog().deleteFile(call.caller, itemOf(call), conditionOf(call.request));
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
