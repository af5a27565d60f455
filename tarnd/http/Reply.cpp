#include "tarnd/http/Reply.h"

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

std::vector<std::pair<std::string, std::string>> headersOf(const Reply& reply, AfterReply after)
{
    std::vector<std::pair<std::string, std::string>> headers = {
        {"Content-Type", reply.contentType},
        {"Cache-Control", "no-store"},
        {"X-Content-Type-Options", "nosniff"},
    };
    if (after == AfterReply::close) headers.emplace_back("Connection", "close");
    headers.insert(headers.end(), reply.headers.begin(), reply.headers.end());
    return headers;
}

Reply xmlReply(XmlWriter&& document)
{
    return xml(200, document);
}

Reply textReply(std::string text)
{
    Reply reply;
    reply.contentType = "text/plain; charset=utf-8";
    reply.text = std::move(text);
    return reply;
}

Reply doneReply()
{
    return xmlReply(XmlWriter("Response"));
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
    case Kind::preconditionFailed:
        return 412;
    case Kind::lengthRequired:
        return 411;
    case Kind::tooLarge:
        return 413;
    case Kind::rangeOutside:
        return 416;
    case Kind::tooMany:
        return 429;
    case Kind::insufficientStorage:
        return 507;
    case Kind::internal:
        return 500;
    case Kind::unavailable:
        return 503;
    }
    return 500;
}

std::pair<std::string, std::string> retrySoon()
{
    return {"Retry-After", "1"};
}

Reply errorReply(const ServiceError& error)
{
    XmlWriter document("Error");
    document.text("code", error.what());
    document.text("reason", error.reason());
    auto reply = xml(statusOf(error.kind()), document);
    if (error.kind() == ServiceError::Kind::tooMany) reply.headers.push_back(retrySoon());
    return reply;
}

} // namespace tarnd
