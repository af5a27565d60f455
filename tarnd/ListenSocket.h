#pragma once

#include <cstdint>
#include <string>

namespace tarnd {

/// A listening TCP socket, bound before anything else of the service starts so that a taken port is told at once; or the
/// one that whoever started the service has bound and handed over, so that nobody is refused while it restarts.
class ListenSocket {
public:
    /// @param address `HOST:PORT`, `[IPV6]:PORT` or `:PORT` (all interfaces); port 0 takes a free one.
    /// Left aside when a socket was handed over: descriptor 3, with LISTEN_PID and LISTEN_FDS (1) in the environment.
    /// @throws std::runtime_error with a sentence that says what to do
    explicit ListenSocket(const std::string& address);
    ~ListenSocket();
    ListenSocket(const ListenSocket&) = delete;
    ListenSocket& operator=(const ListenSocket&) = delete;

    int descriptor() const { return fd; }

    /// Hands the descriptor over; the object no longer closes it.
    int release();

    /// Only programs on this machine can connect.
    bool isLoopback() const { return loopback; }

    /// `127.0.0.1:7070` or `[::1]:7070`, with the port actually taken.
    const std::string& name() const { return hostAndPort; }

private:
    int fd = -1;
    bool loopback = false;
    std::string hostAndPort;
};

} // namespace tarnd
