#include "HttpClientUnderTest.h"

#include "Bounded.h"
#include "tarn/foundation/ContentReduction.h"
#include "tarn/foundation/OneShotPublisher.h"

namespace connector::host::test {

using common::DataBuffer;

HttpClientUnderTest::HttpClientUnderTest(HttpOptions options)
    : threads(std::make_shared<DeliveryThreads>(2))
    , client(std::make_shared<HttpClient>(threads, std::move(options)))
{
    client->start();
}

HttpClientUnderTest::~HttpClientUnderTest()
{
    client->stop();
    threads->drain();
}

Future<HttpClientUnderTest::Response> HttpClientUnderTest::send(const std::string& method,
                                                                const std::string& url, Headers headers,
                                                                http::BodyPublisher body)
{
    auto request = std::make_unique<http::HttpClientRequest>(url, method, std::move(body));
    request->headers = std::move(headers);
    return send(std::move(request));
}

Future<HttpClientUnderTest::Response>
HttpClientUnderTest::send(std::unique_ptr<http::HttpClientRequest> request)
{
    return client->deliver(std::move(request), Address(), nullptr)
        .then([](Future<std::unique_ptr<Message>>&& reply) {
            return Response(&dynamic_cast<http::HttpClientResponse&>(*reply.get().release()));
        });
}

http::BodyPublisher bodyOf(const std::string& bytes)
{
    return std::make_shared<reactive_streams::OneShotPublisher<DataBuffer>>(DataBuffer(bytes));
}

std::string textOf(http::HttpClientResponse& response)
{
    return std::string(bounded(reactive_streams::reduceContentToDataBuffer(response.body)).bytes());
}

std::optional<Failure> transportFailure(Future<HttpClientUnderTest::Response> response)
{
    try {
        bounded(std::move(response));
    } catch (const TransportError& error) {
        return Failure{error.phase(), error.url(), error.what(), error.mayHaveHappened()};
    }
    return std::nullopt;
}

} // namespace connector::host::test
