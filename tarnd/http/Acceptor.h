#pragma once

#include "tarnd/http/ConnectionTable.h"

#include <atomic>
#include <chrono>
#include <functional>
#include <sys/socket.h>
#include <thread>

namespace tarnd {

/// Accepts connections on a thread of its own, as far as the table has room, and keeps the table swept.
class Acceptor {
public:
    /// Takes over an accepted socket, or closes it and returns false.
    using HandOver = std::function<bool(int fd, const sockaddr_storage& address, socklen_t size)>;

    /// @param listenSocket listening and non-blocking; closed by stop()
    Acceptor(int listenSocket, ConnectionTable& table, HandOver handOver);
    ~Acceptor();
    Acceptor(const Acceptor&) = delete;
    Acceptor& operator=(const Acceptor&) = delete;

    /// From here on connections are refused.
    void stop();

private:
    void run();
    void waitForWork(bool full);
    /// False when those who knock have to wait, since there is no room for anybody.
    bool acceptAll();

    int listenSocket;
    int wakeUp; ///< an eventfd
    ConnectionTable& table;
    HandOver handOver;
    std::atomic<bool> stopping = false;
    std::thread thread;
};

} // namespace tarnd
