#include "tarn/protocol/HttpExchange.h"

#include "tarn/foundation/ContentReduction.h"
#include "tarn/protocol/ErrorText.h"

namespace connector {

template TARN_API Future<std::unique_ptr<http::HttpClientResponse>>
Context::handle<http::HttpClientResponse, http::HttpClientRequest>(std::unique_ptr<http::HttpClientRequest>&&,
                                                                   Address&&);

namespace tarn {
namespace {

constexpr std::uint16_t statusOk = 200;
constexpr std::uint16_t statusNotFound = 404;

TarnError serviceError(http::HttpClientResponse& response)
{
    const ReplyDocument document = readDocument(response);
    auto reason = documentText(*document, "reason", "");
    return {errorKindOf(response.status, reason), documentText(*document, "code", ErrorText::unknownError),
            response.status, std::move(reason)};
}

} // namespace

Future<std::unique_ptr<http::HttpClientResponse>>
sendHttpRequest(std::unique_ptr<http::HttpClientRequest>&& request, Address&& to, Context& context)
{
    return context.handle<http::HttpClientResponse, http::HttpClientRequest>(std::move(request),
                                                                             std::move(to));
}

void checkResponse(const std::unique_ptr<http::HttpClientResponse>& response)
{
    // A host that answers with nothing at all: the caller must not be handed a null.
    if (!response) throw TarnError(ErrorKind::unreadableReply, ErrorText::unknownError);
    if (response->status == statusNotFound)
        throw TarnError(ErrorKind::notFound, ErrorText::fileNotFound, statusNotFound, "notFound");
    if (response->status != statusOk) throw serviceError(*response);
}

common::DataBuffer readContent(http::HttpClientResponse& response)
{
    if (!response.body) return {};
    return reactive_streams::reduceContentToDataBuffer(response.body).get();
}

std::string readBody(http::HttpClientResponse& response)
{
    return std::string(readContent(response).bytes());
}

ReplyDocument readDocument(http::HttpClientResponse& response)
{
    const common::DataBuffer content = readContent(response);
    return parseXml(content.bytes());
}

} // namespace tarn
} // namespace connector
