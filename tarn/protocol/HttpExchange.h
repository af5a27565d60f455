#pragma once

#include "tarn/foundation/DataBuffer.h"
#include "tarn/foundation/platform/Context.h"
#include "tarn/foundation/platform/HttpClientRequest.h"
#include "tarn/foundation/platform/HttpClientResponse.h"
#include "tarn/protocol/ReplyXml.h"
#include "tarn/protocol/TarnError.h"

#include <exception>
#include <memory>
#include <string>
#include <utility>

namespace connector {

// Every provider sends through this one instance.
extern template Future<std::unique_ptr<http::HttpClientResponse>>
Context::handle<http::HttpClientResponse, http::HttpClientRequest>(std::unique_ptr<http::HttpClientRequest>&&,
                                                                   Address&&);

namespace tarn {

/// Sends `request` to the HTTP client at `to`. The future is resolved on the host's delivery thread, with the
/// reply or with the transport's failure.
TARN_API Future<std::unique_ptr<http::HttpClientResponse>>
sendHttpRequest(std::unique_ptr<http::HttpClientRequest>&& request, Address&& to, Context& context);

/// Returns for status 200 and for no other, 201 and 204 included.
/// @throws TarnError "File not found." for 404; otherwise the text of the reply's single "code" element,
///         "Unknown error." when there is not exactly one, "TARN error: " + body when the body is not XML
TARN_API void checkResponse(const std::unique_ptr<http::HttpClientResponse>& response);

/// The whole body, in the storage it arrived in; empty when there is none. Waits for a body that is still
/// arriving. @throws the body's stream error
TARN_API common::DataBuffer readContent(http::HttpClientResponse& response);

/// The whole body as text; otherwise as readContent.
TARN_API std::string readBody(http::HttpClientResponse& response);

/// The whole body as an XML document; the bytes are released once it is built. @throws as readContent and parseXml
TARN_API ReplyDocument readDocument(http::HttpClientResponse& response);

/// Tells a TarnError which exchange it comes from.
class ExchangeName {
public:
    explicit ExchangeName(const http::HttpClientRequest& request) : method(request.method), url(request.url)
    {
    }

    /// `read` of a reply that checkResponse lets pass. @throws what either throws, a TarnError with the exchange in it
    template <class Read>
    auto readChecked(const std::unique_ptr<http::HttpClientResponse>& response, Read&& read) const
    {
        try {
            checkResponse(response);
            return read(*response);
        } catch (TarnError& error) {
            error.setExchange(method, url, response ? response->status : 0);
            throw;
        }
    }

private:
    std::string method;
    std::string url;
};

/// Sends `request` and turns the reply into a message: the course of every operation.
///
/// @param read  called with the reply once its status is 200, on the thread that completes the HTTP exchange;
///   returns a std::unique_ptr of the response message
/// @return a future that fails with the transport's failure, with checkResponse's, or with what `read` throws
template <class Read>
Future<std::unique_ptr<Message>> exchange(std::unique_ptr<http::HttpClientRequest>&& request, Address&& to,
                                          Context& context, Read read)
{
    ExchangeName name(*request);
    return sendHttpRequest(std::move(request), std::move(to), context)
        .then([read = std::move(read),
               name = std::move(name)](Future<std::unique_ptr<http::HttpClientResponse>>&& reply) {
            return std::unique_ptr<Message>(name.readChecked(reply.get(), read));
        });
}

/// `exchange` for a reply that is an XML document: `read` is called with that document. A body that is not
/// XML fails the future, also where nothing is read from it.
template <class Read>
Future<std::unique_ptr<Message>> exchangeXml(std::unique_ptr<http::HttpClientRequest>&& request, Address&& to,
                                             Context& context, Read read)
{
    return exchange(std::move(request), std::move(to), context,
                    [read = std::move(read)](http::HttpClientResponse& response) {
                        const ReplyDocument document = readDocument(response);
                        return read(*document);
                    });
}

/// `exchangeXml` for a request that is yet to be built: what keeps `build` from building it, such as
/// malformed UTF-16 or an endpoint that is not a URL, becomes the failure of the future, and nothing is sent.
template <class Build, class Read>
Future<std::unique_ptr<Message>> buildAndExchangeXml(Build build, Address&& to, Context& context, Read read)
{
    std::unique_ptr<http::HttpClientRequest> request;
    try {
        request = build();
    } catch (...) {
        return makeFailedFuture<std::unique_ptr<Message>>(std::current_exception());
    }
    return exchangeXml(std::move(request), std::move(to), context, std::move(read));
}

/// The reader of a reply that says nothing but that it is one.
template <class Response>
std::unique_ptr<Response> readNothing(const Poco::XML::Document&)
{
    return std::make_unique<Response>();
}

} // namespace tarn
} // namespace connector
