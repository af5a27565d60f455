#include "tarnd/http/PartialAnswer.h"

#include <microhttpd.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>

namespace tarnd {

namespace {

bool sendAll(int fd, std::string_view bytes)
{
    constexpr int patience = 1000; // milliseconds
    while (!bytes.empty()) {
        pollfd waiting{fd, POLLOUT, 0};
        if (::poll(&waiting, 1, patience) != 1) return false;
        const auto sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent < 0) return false;
        bytes.remove_prefix(static_cast<std::size_t>(sent));
    }
    return true;
}

} // namespace

void answerInPart(int fd, const Reply& reply, std::uint64_t most)
{
    if (reply.source) return; // how much there is of it nobody knows
    const auto size = reply.file ? reply.fileSize : reply.text.size();
    auto head = "HTTP/1.1 " + std::to_string(reply.status) + ' ' + MHD_get_reason_phrase_for(reply.status) +
                "\r\nContent-Type: " + reply.contentType + "\r\nContent-Length: " + std::to_string(size) +
                "\r\n";
    for (const auto& [name, value] : reply.headers)
        head.append(name).append(": ").append(value).append("\r\n");
    if (!sendAll(fd, head + "\r\n")) return;
    most = std::min<std::uint64_t>(most, size);
    if (!reply.file) {
        sendAll(fd, std::string_view(reply.text).substr(0, most));
        return;
    }
    std::array<char, 64 * 1024> piece;
    for (std::uint64_t at = 0; at < most;) {
        const auto got =
            ::pread(reply.file.get(), piece.data(), std::min<std::uint64_t>(piece.size(), most - at),
                    static_cast<off_t>(reply.fileOffset + at));
        if (got <= 0 || !sendAll(fd, {piece.data(), static_cast<std::size_t>(got)})) return;
        at += static_cast<std::uint64_t>(got);
    }
}

} // namespace tarnd
