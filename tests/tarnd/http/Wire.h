#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace tarnd::test {

struct WireReply {
    int status = 0;
    std::map<std::string, std::string> headers; ///< names in lower case; without the date
    std::string body;

    bool operator==(const WireReply&) const = default;
};

/// One TCP connection to the service on which a test may say anything, well-formed or not. Every wait is bounded.
class Wire {
public:
    /// @param from the loopback address that the service is to see
    explicit Wire(std::uint16_t port, const std::string& from = "127.0.0.1");
    ~Wire();
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;

    /// Sends all bytes; false when the service has closed the connection meanwhile.
    bool send(std::string_view bytes);

    /// Says that nothing more will be sent.
    void endOfRequest();

    /// The next reply, a `100 Continue` included; nothing when the service closes without one.
    /// @param toHead the request was HEAD: the reply has no body whatever its length says
    /// @param meanwhile called when the head has come and most of the body has not
    std::optional<WireReply> receive(bool toHead = false, const std::function<void()>& meanwhile = {});

    /// What still comes until the service closes the connection.
    std::string rest();

private:
    bool fill();

    int fd;
    std::string received;
    bool isAnswered = false; ///< nothing is under way
};

/// "METHOD TARGET HTTP/1.1" with Host, the session and the other headers, and a body with its length.
std::string requestText(std::string_view method, std::string_view target, std::string_view session = {},
                        std::string_view body = {}, std::string_view headers = {});

} // namespace tarnd::test
