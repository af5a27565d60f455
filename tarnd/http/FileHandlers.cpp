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
/// Of "sha-256=:BASE64:", one of several members, the text between the colons; of one that is not so all behind the
/// sign, which is the digest of nothing. Empty without that member.
std::string sha256In(std::string_view digests)
{
    constexpr std::string_view key = "sha-256=";
    while (!digests.empty()) {
        auto member = digests.substr(0, digests.find(','));
        digests.remove_prefix(std::min(member.size() + 1, digests.size()));
        member.remove_prefix(std::min(member.find_first_not_of(" \t"), member.size()));
        if (!member.starts_with(key)) continue;
        member = member.substr(key.size(), member.find_first_of("; \t") - key.size());
        const bool isWhole = member.size() > 2 && member.front() == ':' && member.back() == ':';
        return std::string(isWhole ? member.substr(1, member.size() - 2) : "=" + std::string(member));
    }
    return {};
}

std::string announcedDigest(const Request& request)
{
    for (const auto value : request.headerValues("Content-Digest"))
        if (auto digest = sha256In(value); !digest.empty()) return digest;
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
