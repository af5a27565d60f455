#include "tarnd/http/ConnectionTable.h"

#include <algorithm>
#include <fcntl.h>
// glibc's own <netinet/tcp.h> lacks the counters of bytes.
#include <linux/sockios.h>
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <utility>

namespace tarnd {

/// What the kernel knows of a connection.
struct SocketState {
    explicit SocketState(int fd)
    {
        tcp_info info{};
        socklen_t size = sizeof info;
        getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &size);
        received = info.tcpi_bytes_received;
        acknowledged = info.tcpi_bytes_acked;
        clientEnded = info.tcpi_state == TCP_CLOSE_WAIT;
        ioctl(fd, FIONREAD, &unread);
        ioctl(fd, SIOCOUTQ, &unsent);
    }

    static constexpr int TCP_CLOSE_WAIT = 8; // the kernel's number for it, in no header for programs

    std::uint64_t received;     ///< bytes since the connection began
    std::uint64_t acknowledged; ///< bytes that reached the client, likewise
    bool clientEnded;           ///< nothing more comes from there
    int unread = 0;             ///< bytes that have come and that the service has not taken yet
    int unsent = 0;             ///< bytes that the service has given and that the client has not taken yet
};

bool ConnectionTable::makeRoom()
{
    const std::lock_guard lock(mutex);
    if (staying < limits.connections) return true;
    const auto fewer = [](const auto& a, const auto& b) { return a.second < b.second; };
    const auto most = std::max_element(perClient.begin(), perClient.end(), fewer)->first;
    return evict(most) || evict({});
}

bool ConnectionTable::admit(int fd, ClientAddress client)
{
    const std::lock_guard lock(mutex);
    const auto found = perClient.find(client);
    if (found != perClient.end() && found->second >= limits.perAddress && !evict(client)) return false;
    connections.emplace(fd, Connection{client});
    ++perClient[client];
    ++staying;
    return true;
}

/// Ends the connection that has waited longest for a head, of this client or of any.
bool ConnectionTable::evict(std::optional<ClientAddress> client)
{
    auto oldest = connections.end();
    for (auto each = connections.begin(); each != connections.end(); ++each) {
        const auto& [fd, connection] = *each;
        const bool waits = connection.phase == Phase::head || connection.phase == Phase::refused;
        if (!waits || connection.ending || (client && connection.client != *client)) continue;
        if (oldest == connections.end() || connection.since < oldest->second.since) oldest = each;
    }
    if (oldest == connections.end()) return false;
    // Not close(): the descriptor is the server library's, which sees the end of the connection and closes it.
    shutdown(oldest->first, SHUT_RDWR);
    discount(oldest->second);
    return true;
}

void ConnectionTable::discount(Connection& connection)
{
    if (std::exchange(connection.ending, true)) return;
    --staying;
    const auto count = perClient.find(connection.client);
    if (--count->second == 0) perClient.erase(count);
}

void ConnectionTable::remove(int fd)
{
    const std::lock_guard lock(mutex);
    const auto found = connections.find(fd);
    if (found == connections.end()) return;
    discount(found->second);
    connections.erase(found);
}

void ConnectionTable::enter(int fd, Phase phase)
{
    const std::lock_guard lock(mutex);
    const auto found = connections.find(fd);
    if (found == connections.end()) return;
    auto& connection = found->second;
    connection.phase = phase;
    connection.since = Clock::now();
    connection.moved.reset();
    connection.headBegun = connection.left = false;
    connection.file = {};
}

void ConnectionTable::watch(int fd, const UniqueFd& file, std::uint64_t end)
{
    const std::lock_guard lock(mutex);
    const auto found = connections.find(fd);
    if (found == connections.end()) return;
    // One of its own: the server library closes the other when it likes. Without one the slowness shows it.
    found->second.file = UniqueFd(fcntl(file.get(), F_DUPFD_CLOEXEC, 0));
    found->second.fileEnd = end;
}

void ConnectionTable::setBusy(int fd, bool busy)
{
    const std::lock_guard lock(mutex);
    const auto found = connections.find(fd);
    if (found != connections.end()) found->second.busy = busy;
}

void ConnectionTable::sweep()
{
    const std::lock_guard lock(mutex);
    for (auto& [fd, connection] : connections) {
        if (!connection.ending && mustGo(fd, connection)) {
            shutdown(fd, SHUT_RDWR);
            discount(connection);
        }
    }
}

bool ConnectionTable::isEmpty() const
{
    const std::lock_guard lock(mutex);
    return connections.empty();
}

bool ConnectionTable::mustGo(int fd, Connection& connection) const
{
    const SocketState state(fd);
    if (connection.phase == Phase::download)
        return isCutShort(connection) ||
               isTooSlow(state.acknowledged, connection.busy,
                         state.unsent == 0 ? limits.head : limits.download, connection);
    // The server library reads once per event, so that an end that came together with bytes escapes it. Seen
    // twice, because those bytes may be on their way to the handler just now.
    const bool gone = state.clientEnded && state.unread == 0 && !connection.busy;
    if (gone && std::exchange(connection.left, true)) return true;
    return isLate(state, connection);
}

bool ConnectionTable::isCutShort(const Connection& connection)
{
    struct stat now = {};
    return connection.file && fstat(connection.file.get(), &now) == 0 &&
           static_cast<std::uint64_t>(now.st_size) < connection.fileEnd;
}

bool ConnectionTable::isLate(const SocketState& state, Connection& connection) const
{
    const auto waited = Clock::now() - connection.since;
    if (connection.phase == Phase::upload)
        return isTooSlow(state.received, state.unread != 0 || connection.busy, limits.upload, connection);
    if (connection.phase == Phase::refused) return waited > limits.upload;
    if (connection.headBegun) return waited > limits.head && !connection.busy;
    // Silence between two requests is the server library's to measure; the first byte starts the clock here.
    if (!connection.moved) connection.moved = state.received;
    if (*connection.moved == state.received) return false;
    connection.headBegun = true;
    connection.since = Clock::now();
    return false;
}

/// @param ours the service is what the bytes wait for
bool ConnectionTable::isTooSlow(std::uint64_t moved, bool ours, std::chrono::seconds window,
                                Connection& connection) const
{
    const auto now = Clock::now();
    const bool over = now - connection.since >= window;
    const auto least = limits.leastRate * static_cast<std::uint64_t>(window.count());
    if (over && !ours && connection.moved && moved - *connection.moved < least) return true;
    if (!connection.moved || over || ours) {
        connection.since = now;
        connection.moved = moved;
    }
    return false;
}

} // namespace tarnd
