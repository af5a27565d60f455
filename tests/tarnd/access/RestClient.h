#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace tarnd::test {

/// One reply as it came.
struct RestReply {
    int status = 0;
    std::string headers; ///< status line and header lines as received, save Date
    std::string body;

    bool operator==(const RestReply&) const = default;
};

/// The value of a header, empty when absent. @param name in any case
std::string headerOf(const RestReply& reply, const std::string& name);

struct RestRequest {
    std::string method = "GET";
    std::string url; ///< sent as it stands
    std::vector<std::string> headers;
    std::string body;                        ///< sent with every PUT, also when empty
    std::function<void()> onFirstBytes = {}; ///< called once, when the first bytes of the content have come
};

/// Requests over one kept-alive connection. A transport failure throws std::runtime_error.
/// Not for use from two threads at once.
class RestClient {
public:
    RestClient();
    ~RestClient();
    RestClient(RestClient&&) noexcept;

    RestReply send(const RestRequest& request);

private:
    struct Curl;
    std::unique_ptr<Curl> curl;
};

} // namespace tarnd::test
