#include "tarn/protocol/HttpExchange.h"

#include "tarn/foundation/ContentReduction.h"
#include "tarn/protocol/ErrorText.h"

#include <stdexcept>

namespace connector {

template TARN_API Future<std::unique_ptr<http::HttpClientResponse>>
Context::handle<http::HttpClientResponse, http::HttpClientRequest>(std::unique_ptr<http::HttpClientRequest>&&,
                                                                   Address&&);

namespace tarn {
namespace {

constexpr std::uint16_t statusOk = 200;
constexpr std::uint16_t statusNotFound = 404;

std::string serviceError(http::HttpClientResponse& response)
{
    const ReplyDocument document = readDocument(response);
    return documentText(*document, "code", ErrorText::unknownError);
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
    if (!response) throw std::runtime_error(ErrorText::unknownError);
    if (response->status == statusNotFound) throw std::runtime_error(ErrorText::fileNotFound);
    if (response->status != statusOk) throw std::runtime_error(serviceError(*response));
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
