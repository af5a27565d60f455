#include "tarnd/http/Acceptor.h"

#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tarnd {

namespace {

constexpr std::chrono::milliseconds tick{250};

int newEvent()
{
    const int event = eventfd(0, EFD_CLOEXEC);
    if (event < 0) throw std::system_error(errno, std::generic_category(), "Could not begin to listen");
    return event;
}

} // namespace

Acceptor::Acceptor(int theListenSocket, ConnectionTable& theTable, HandOver theHandOver)
    : listenSocket(theListenSocket)
    , wakeUp(newEvent())
    , table(theTable)
    , handOver(std::move(theHandOver))
    , thread([this] { run(); })
{
}

Acceptor::~Acceptor()
{
    stop();
    close(wakeUp);
}

void Acceptor::stop()
{
    if (!thread.joinable()) return;
    stopping = true;
    eventfd_write(wakeUp, 1);
    thread.join();
    close(listenSocket);
}

void Acceptor::run()
{
    bool full = false;
    auto lastTick = std::chrono::steady_clock::now();
    while (!stopping) {
        waitForWork(full);
        full = !acceptAll();
        if (std::chrono::steady_clock::now() - lastTick < tick) continue;
        lastTick = std::chrono::steady_clock::now();
        table.sweep();
    }
}

/// Without connections there is nothing to sweep, and an idle service must not keep waking the machine, unless somebody
/// waits to be let in.
void Acceptor::waitForWork(bool full)
{
    pollfd waiting[] = {{wakeUp, POLLIN, 0}, {listenSocket, POLLIN, 0}};
    poll(waiting, full ? 1 : 2, full || !table.isEmpty() ? static_cast<int>(tick.count()) : -1);
}

bool Acceptor::acceptAll()
{
    while (!stopping) {
        // Those who knock wait in the kernel's queue: better late than refused.
        if (!table.makeRoom()) return false;
        sockaddr_storage address{};
        socklen_t size = sizeof address;
        const int fd =
            accept4(listenSocket, reinterpret_cast<sockaddr*>(&address), &size, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0) return errno == EAGAIN || errno == EINTR || errno == ECONNABORTED;
        if (!table.admit(fd, clientAddressOf(address)))
            close(fd);
        else if (!handOver(fd, address, size))
            table.remove(fd);
    }
    return true;
}

} // namespace tarnd
