#include "tarnd/http/Reply.h"

#include "tarnd/store/Sentences.h"

#include <sys/stat.h>

namespace tarnd {

namespace {

Reply xml(unsigned status, XmlWriter& document)
{
    Reply reply;
    reply.status = status;
    reply.contentType = "application/xml; charset=utf-8";
    reply.text = document.finish();
    return reply;
}

} // namespace

Reply xmlReply(XmlWriter&& document)
{
    return xml(200, document);
}

Reply doneReply()
{
    return xmlReply(XmlWriter("Response"));
}

Reply fileReply(UniqueFd file, std::uint64_t size)
{
    struct stat found {};

    // Otherwise sendfile would wait for the rest until the connection counts as idle.
    if (fstat(file.get(), &found) != 0 || static_cast<std::uint64_t>(found.st_size) != size)
        throw sentences::internal.because("a content has " + std::to_string(found.st_size) +
                                          " bytes instead of " + std::to_string(size) + "; see tarnd fsck");
    Reply reply;
    reply.contentType = "application/octet-stream";
    reply.file = std::move(file);
    reply.fileSize = size;
    return reply;
}

unsigned statusOf(ServiceError::Kind kind)
{
    using Kind = ServiceError::Kind;
    switch (kind) {
    case Kind::badRequest:
        return 400;
    case Kind::loginRequired:
        return 401;
    case Kind::notAllowed:
        return 403;
    case Kind::notFound:
        return 404;
    case Kind::conflict:
        return 409;
    case Kind::lengthRequired:
        return 411;
    case Kind::tooLarge:
        return 413;
    case Kind::insufficientStorage:
        return 507;
    case Kind::internal:
        return 500;
    case Kind::unavailable:
        return 503;
    }
    return 500;
}

Reply errorReply(const ServiceError& error)
{
    XmlWriter document("Error");
    document.text("code", error.what());
    return xml(statusOf(error.kind()), document);
}

} // namespace tarnd
