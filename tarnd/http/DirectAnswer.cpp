#include "tarnd/http/DirectAnswer.h"

#include <gnutls/gnutls.h>
#include <microhttpd.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <string>
#include <string_view>

namespace tarnd {

namespace {

/// @param size  of the body in bytes
std::string headOf(const Reply& reply, std::uint64_t size, AfterReply after)
{
    auto head = "HTTP/1.1 " + std::to_string(reply.status) + ' ' + MHD_get_reason_phrase_for(reply.status) +
                "\r\nContent-Length: " + std::to_string(size) + "\r\n";
    for (const auto& [name, value] : headersOf(reply, after))
        head.append(name).append(": ").append(value).append("\r\n");
    return head + "\r\n";
}

gnutls_session_t sessionOf(const DirectConnection& connection)
{
    return static_cast<gnutls_session_t>(connection.tls);
}

/// As much as there is room for. The server library has made its sockets so that they do not wait.
ssize_t sendSome(const DirectConnection& connection, std::string_view bytes)
{
    if (connection.tls == nullptr)
        return ::send(connection.fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return gnutls_record_send(sessionOf(connection), bytes.data(), bytes.size());
}

bool sendAll(const DirectConnection& connection, std::string_view bytes)
{
    constexpr int patience = 1000; // milliseconds
    while (!bytes.empty()) {
        pollfd waiting{connection.fd, POLLOUT, 0};
        if (::poll(&waiting, 1, patience) != 1) return false;
        const auto sent = sendSome(connection, bytes);
        if (sent < 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

} // namespace

void answerDirectly(const DirectConnection& connection, const Reply& reply)
{
    sendSome(connection, headOf(reply, reply.text.size(), AfterReply::close) + reply.text);
    if (connection.tls != nullptr) gnutls_bye(sessionOf(connection), GNUTLS_SHUT_WR);
}

void answerUnread(const DirectConnection& connection, const Reply& reply)
{
    constexpr std::chrono::milliseconds patience{1000};
    constexpr ssize_t most = 16 * 1024 * 1024; // bytes: what sockets hold, and more
    answerDirectly(connection, reply);
    ::shutdown(connection.fd, SHUT_WR);
    std::array<char, 64 * 1024> dropped;
    const auto end = std::chrono::steady_clock::now() + patience;
    ssize_t got = 1;
    for (ssize_t all = 0; got > 0 && all < most; all += got) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
        pollfd waiting{connection.fd, POLLIN, 0};
        if (left.count() <= 0 || ::poll(&waiting, 1, static_cast<int>(left.count())) != 1) return;
        got = ::recv(connection.fd, dropped.data(), dropped.size(), MSG_DONTWAIT);
    }
}

void answerInPart(const DirectConnection& connection, const Reply& reply, std::uint64_t most)
{
    if (reply.source) return; // how much there is of it nobody knows
    const auto size = reply.file ? reply.fileSize : reply.text.size();
    if (!sendAll(connection, headOf(reply, size, AfterReply::keep))) return;
    most = std::min<std::uint64_t>(most, size);
    if (!reply.file) {
        sendAll(connection, std::string_view(reply.text).substr(0, most));
        return;
    }
    std::array<char, 64 * 1024> piece;
    for (std::uint64_t at = 0; at < most;) {
        const auto got =
            ::pread(reply.file.get(), piece.data(), std::min<std::uint64_t>(piece.size(), most - at),
                    static_cast<off_t>(reply.fileOffset + at));
        if (got <= 0 || !sendAll(connection, {piece.data(), static_cast<std::size_t>(got)})) return;
        at += static_cast<std::uint64_t>(got);
    }
}

} // namespace tarnd
