#include "tests/tarnd/http/Wire.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>

namespace tarnd::test {

namespace {

constexpr int patience = 20'000; // milliseconds

void parseHead(std::string_view head, WireReply& reply)
{
    const auto status = head.substr(std::min<std::size_t>(head.size(), 9), 3);
    // The port of a service that was killed may be another server's by now, and that may answer anything.
    if (std::from_chars(status.data(), status.data() + status.size(), reply.status).ec != std::errc())
        throw std::runtime_error("no reply of a service: " + std::string(head));
    head.remove_prefix(std::min(head.size(), head.find("\r\n") + 2));
    while (!head.empty()) {
        const auto line = head.substr(0, head.find("\r\n"));
        head.remove_prefix(std::min(head.size(), line.size() + 2));
        const auto colon = line.find(": ");
        auto name = std::string(line.substr(0, colon));
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
        if (name != "date") reply.headers[name] = line.substr(colon + 2);
    }
}

} // namespace

Wire::Wire(std::uint16_t port, const std::string& from) : fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = inet_addr(from.c_str());
    // Else connections to different services could not share a port, of which each keeps one for a minute after its end.
    const int whenConnecting = 1;
    setsockopt(fd, IPPROTO_IP, IP_BIND_ADDRESS_NO_PORT, &whenConnecting, sizeof whenConnecting);
    bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        close(fd);
        throw std::runtime_error(std::string("connect: ") + std::strerror(error));
    }
}

/// Where nothing is under way the connection needs no orderly end, after which it would keep its port for a minute:
/// thousands of requests would take them all.
Wire::~Wire()
{
    const linger atOnce{1, 0};
    if (isAnswered) setsockopt(fd, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    close(fd);
}

bool Wire::send(std::string_view bytes)
{
    isAnswered = false;
    while (!bytes.empty()) {
        const auto sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

void Wire::endOfRequest()
{
    shutdown(fd, SHUT_WR);
}

bool Wire::fill()
{
    pollfd waiting{fd, POLLIN, 0};
    if (poll(&waiting, 1, patience) == 0) throw std::runtime_error("the service does not answer");
    char buffer[64 * 1024];
    const auto count = recv(fd, buffer, sizeof buffer, 0);
    if (count <= 0) return false;
    received.append(buffer, static_cast<std::size_t>(count));
    return true;
}

std::optional<WireReply> Wire::receive(bool toHead, const std::function<void()>& meanwhile)
{
    std::size_t end;
    while ((end = received.find("\r\n\r\n")) == std::string::npos)
        if (!fill()) return {};
    WireReply reply;
    parseHead(std::string_view(received).substr(0, end), reply);
    received.erase(0, end + 4);
    if (meanwhile) meanwhile();
    const auto length = reply.headers.find("content-length");
    const auto size = toHead || length == reply.headers.end() ? 0 : std::stoull(length->second);
    while (received.size() < size)
        if (!fill()) return {};
    reply.body = received.substr(0, size);
    received.erase(0, size);
    isAnswered = reply.status >= 200 && received.empty();
    return reply;
}

std::string Wire::rest()
{
    while (fill()) {
    }
    return std::move(received);
}

std::string requestText(std::string_view method, std::string_view target, std::string_view session,
                        std::string_view body, std::string_view headers)
{
    std::string text;
    text.append(method).append(" ").append(target).append(" HTTP/1.1\r\nHost: tarn\r\n");
    if (!session.empty()) text.append("x-qz-tarn-session-id: ").append(session).append("\r\n");
    text.append(headers);
    const bool inChunks = headers.find("Transfer-Encoding") != headers.npos;
    if (!inChunks && (!body.empty() || method == "PUT"))
        text.append("Content-Length: ").append(std::to_string(body.size())).append("\r\n");
    return text.append("\r\n").append(body);
}

} // namespace tarnd::test
