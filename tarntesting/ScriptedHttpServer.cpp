#include "tarntesting/ScriptedHttpServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <string_view>

namespace tarntesting {
namespace {

int bindToLoopback(std::uint16_t& port)
{
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (socket < 0 || ::bind(socket, generic, length) != 0 || ::getsockname(socket, generic, &length) != 0) {
        throw std::runtime_error("no port on loopback");
    }
    port = ntohs(address.sin_port);
    return socket;
}

std::size_t contentLength(const std::string& head)
{
    constexpr std::string_view name = "\r\nContent-Length: ";
    const auto at = head.find(name);
    return at == std::string::npos ? 0 : std::stoul(head.substr(at + name.size()));
}

} // namespace

std::uint16_t closedPort()
{
    std::uint16_t port = 0;
    bindToLoopback(port); // kept until the program ends: nobody else is to listen there
    return port;
}

ScriptedHttpServer::ScriptedHttpServer(Script connectionScript) : script(std::move(connectionScript))
{
    listener = bindToLoopback(boundPort);
    ::listen(listener, 512);
    acceptor = std::thread([this] { accept(); });
}

ScriptedHttpServer::~ScriptedHttpServer()
{
    ::shutdown(listener, SHUT_RDWR);
    acceptor.join();
    std::vector<std::thread> joined;
    {
        std::lock_guard lock(mutex);
        for (int socket : open)
            ::shutdown(socket, SHUT_RDWR);
        joined.swap(workers);
    }
    for (auto& worker : joined)
        worker.join();
    ::close(listener);
}

void ScriptedHttpServer::accept()
{
    for (;;) {
        const int socket = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (socket < 0) return;
        std::lock_guard lock(mutex);
        open.push_back(socket);
        peak = std::max(peak, static_cast<unsigned>(open.size()));
        workers.emplace_back([this, ordinal = connections, socket] { serve(ordinal, socket); });
        ++connections;
    }
}

void ScriptedHttpServer::serve(unsigned ordinal, int socket)
{
    Connection connection;
    connection.server = this;
    connection.ordinal = ordinal;
    connection.socket = socket;
    script(connection);
    std::lock_guard lock(mutex);
    std::erase(open, socket);
    ::close(socket);
}

bool ScriptedHttpServer::Connection::fill()
{
    char chunk[65536];
    const auto got = ::recv(socket, chunk, sizeof chunk, 0);
    if (got <= 0) return false;
    buffered.append(chunk, static_cast<std::size_t>(got));
    return true;
}

std::optional<std::string> ScriptedHttpServer::Connection::readHead()
{
    std::size_t end = 0;
    while ((end = buffered.find("\r\n\r\n")) == std::string::npos) {
        if (!fill()) return std::nullopt;
    }
    std::string head = buffered.substr(0, end + 4);
    buffered.erase(0, end + 4);
    {
        std::lock_guard lock(server->mutex);
        server->recordedHeads.push_back(head);
    }
    server->changed.notify_all();
    return head;
}

std::optional<std::string> ScriptedHttpServer::Connection::readRequest()
{
    auto request = readHead();
    if (!request) return std::nullopt;
    std::size_t length = contentLength(*request);
    if (length == 0 && request->find("\r\nTransfer-Encoding: chunked\r\n") != std::string::npos) {
        constexpr std::string_view last = "0\r\n\r\n"; // no content of the tests looks like it
        while (buffered.find(last) == std::string::npos) {
            if (!fill()) return std::nullopt;
        }
        length = buffered.find(last) + last.size();
    }
    while (buffered.size() < length) {
        if (!fill()) return std::nullopt;
    }
    request->append(buffered, 0, length);
    buffered.erase(0, length);
    std::lock_guard lock(server->mutex);
    server->recordedRequests.push_back(*request);
    return request;
}

bool ScriptedHttpServer::Connection::skip(std::size_t bytes)
{
    while (bytes > buffered.size()) {
        bytes -= buffered.size();
        buffered.clear();
        if (!fill()) return false;
    }
    buffered.erase(0, bytes);
    return true;
}

bool ScriptedHttpServer::Connection::send(std::string_view bytes)
{
    while (!bytes.empty()) {
        const auto sent = ::send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

void ScriptedHttpServer::Connection::stall()
{
    while (fill())
        buffered.clear();
}

void ScriptedHttpServer::Connection::ignore()
{
    pollfd gone{socket, POLLRDHUP, 0};
    ::poll(&gone, 1, 20'000);
}

void ScriptedHttpServer::Connection::reset()
{
    const linger atOnce{1, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
}

void ScriptedHttpServer::Connection::relay(std::uint16_t port, const Gate& gate)
{
    const sockaddr_in address{AF_INET, htons(port), {htonl(INADDR_LOOPBACK)}, {}};
    const int target = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    bool open = ::connect(target, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    pollfd ends[] = {{socket, POLLIN, 0}, {target, POLLIN, 0}};
    char piece[65536];
    while (open && ::poll(ends, 2, -1) > 0)
        for (const auto& [from, events, happened] : ends) {
            if (!open || !happened) continue;
            const auto got = ::recv(from, piece, sizeof piece, 0);
            const auto passed = got > 0 ? gate(static_cast<std::size_t>(got), from == target) : 0;
            if (passed > 0) ::send(from == target ? socket : target, piece, passed, MSG_NOSIGNAL);
            open = got > 0 && passed == static_cast<std::size_t>(got);
        }
    ::close(target);
}

ScriptedHttpServer::Script ScriptedHttpServer::always(std::string reply)
{
    return [reply = std::move(reply)](Connection& connection) {
        while (connection.readRequest() && connection.send(reply)) {
        }
    };
}

std::string ScriptedHttpServer::reply(const std::string& body, const std::string& status)
{
    return "HTTP/1.1 " + status + "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::vector<std::string> ScriptedHttpServer::heads() const
{
    std::lock_guard lock(mutex);
    return recordedHeads;
}

std::vector<std::string> ScriptedHttpServer::requests() const
{
    std::lock_guard lock(mutex);
    return recordedRequests;
}

unsigned ScriptedHttpServer::connectionCount() const
{
    std::lock_guard lock(mutex);
    return connections;
}

unsigned ScriptedHttpServer::peakConnections() const
{
    std::lock_guard lock(mutex);
    return peak;
}

bool ScriptedHttpServer::waitForHeads(std::size_t count) const
{
    std::unique_lock lock(mutex);
    return changed.wait_for(lock, std::chrono::seconds(20), [&] { return recordedHeads.size() >= count; });
}

} // namespace tarntesting
