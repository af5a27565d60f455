#pragma once

#include "tarnd/http/ClientAddress.h"
#include "tarnd/store/UniqueFd.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>

namespace tarnd {

/// How much of the service one client may hold, and for how long.
struct ConnectionLimits {
    std::size_t connections = 1000;
    std::size_t perAddress = 750; ///< leaves room for the others
    std::chrono::seconds head{
        10}; ///< from the first byte of a head, or the start of a connection, to its end
    std::chrono::seconds upload{30};   ///< over which an upload must keep to `leastRate`
    std::chrono::seconds download{60}; ///< over which a reply must; longer, because clients pause downloads
    std::uint64_t leastRate = 1024;    ///< bytes per second
};

/// The open connections: who has them, what they are doing, and which of them must go.
///
/// The server library watches only for silence, which a byte now and then prevents; here the kernel's own
/// counters of each socket tell what really moves. A connection that must go is shut down, and the server
/// library closes it then. Callable from any thread.
class ConnectionTable {
public:
    enum class Phase {
        head,     ///< between requests or in a head: makes way when the table is full
        refused,  ///< the rest of a body that nobody wants: makes way as well
        upload,   ///< a body comes in
        download, ///< a reply is made and goes out
    };

    explicit ConnectionTable(const ConnectionLimits& theLimits) : limits(theLimits) {}

    /// True when one more connection fits. A full table makes room by ending a connection that waits for a
    /// head: the one that has waited longest, of the client that has most.
    bool makeRoom();

    /// Enters a new connection; false when its client has its share and none of those makes way.
    /// @pre makeRoom()
    bool admit(int fd, ClientAddress client);

    /// @pre no descriptor of that number was opened since
    void remove(int fd);

    void enter(int fd, Phase phase);

    /// The download that was entered is of a file up to `end`, and must go once the file is shorter: the server
    /// library would try for the rest for ever.
    void watch(int fd, const UniqueFd& file, std::uint64_t end);

    /// While one of these lives, a handler works on the connection, which may take as long as that takes.
    class Busy {
    public:
        Busy(ConnectionTable& connections, int fd) : table(connections), socket(fd)
        {
            table.setBusy(socket, true);
        }

        ~Busy() { table.setBusy(socket, false); }

        Busy(const Busy&) = delete;
        Busy& operator=(const Busy&) = delete;

        int descriptor() const { return socket; }

    private:
        ConnectionTable& table;
        const int socket;
    };

    /// Shuts down what is too slow, and what its client has left in the middle of a request. Call it a few
    /// times a second.
    void sweep();

    bool isEmpty() const;

private:
    using Clock = std::chrono::steady_clock;

    struct Connection {
        ClientAddress client;
        Phase phase = Phase::head;
        Clock::time_point since = Clock::now();  ///< in this phase, or in this window of it
        std::optional<std::uint64_t> moved = {}; ///< the socket's counter then; unknown until the next sweep
        bool headBegun = true;                   ///< a new connection owes its first head at once
        bool busy = false;
        bool left = false;         ///< its client was seen gone
        bool ending = false;       ///< shut down, and not yet removed
        UniqueFd file = {};        ///< what is being sent
        std::uint64_t fileEnd = 0; ///< bytes that it must have
    };

    void setBusy(int fd, bool busy);
    bool evict(std::optional<ClientAddress> client);
    bool mustGo(int fd, Connection& connection) const;
    static bool isCutShort(const Connection& connection);
    bool isLate(const struct SocketState& state, Connection& connection) const;
    bool isTooSlow(std::uint64_t moved, bool ours, std::chrono::seconds window, Connection& connection) const;
    void discount(Connection& connection);

    const ConnectionLimits limits;
    mutable std::mutex mutex; ///< guards the members below
    std::map<int, Connection> connections;
    std::map<ClientAddress, std::size_t> perClient; ///< without those that are ending
    std::size_t staying = 0;                        ///< connections that are not ending
};

} // namespace tarnd
