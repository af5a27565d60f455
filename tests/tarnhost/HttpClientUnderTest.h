#pragma once

#include "tarn/foundation/platform/HttpClientResponse.h"
#include "tarnhost/DeliveryThreads.h"
#include "tarnhost/HttpClient.h"
#include "tarnhost/TransportError.h"

#include <memory>
#include <optional>
#include <string>

namespace connector::host::test {

/// A started HTTP client with two delivery threads, taken down in the order that a host uses.
class HttpClientUnderTest {
public:
    using Headers = std::unordered_multimap<std::string, std::string>;
    using Response = std::unique_ptr<http::HttpClientResponse>;

    explicit HttpClientUnderTest(HttpOptions options = {});
    ~HttpClientUnderTest();

    Future<Response> send(const std::string& method, const std::string& url, Headers headers = {},
                          http::BodyPublisher body = nullptr);
    Future<Response> send(std::unique_ptr<http::HttpClientRequest> request);

    std::shared_ptr<DeliveryThreads> threads;
    std::shared_ptr<HttpClient> client;
};

http::BodyPublisher bodyOf(const std::string& bytes);

/// All bytes of a reply's body.
std::string textOf(http::HttpClientResponse& response);

/// How the future failed.
struct Failure {
    TransportPhase phase{};
    std::string url;
    std::string text;
    bool mayHaveHappened = false;
};

/// The TransportError that the future fails with; nothing when it does not.
std::optional<Failure> transportFailure(Future<HttpClientUnderTest::Response> response);

} // namespace connector::host::test
