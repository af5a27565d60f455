#include "tests/tarnd/postgres/SilentProxy.h"

#include <arpa/inet.h>
#include <csignal>
#include <map>
#include <poll.h>
#include <stdexcept>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tarnd::test {

namespace {

sockaddr_in loopback(int port)
{
    return {AF_INET, htons(static_cast<std::uint16_t>(port)), {htonl(INADDR_LOOPBACK)}, {}};
}

[[noreturn]] void forward(int listening, const sockaddr_in& target)
{
    for (std::map<int, int> peers;;) {
        std::vector<pollfd> waiting{{listening, POLLIN, 0}};
        for (const auto& [from, to] : peers)
            waiting.push_back({from, POLLIN, 0});
        ::poll(waiting.data(), waiting.size(), -1);
        if (waiting[0].revents) {
            const int from = ::accept(listening, nullptr, nullptr), to = ::socket(AF_INET, SOCK_STREAM, 0);
            ::connect(to, reinterpret_cast<const sockaddr*>(&target), sizeof target);
            peers[from] = to;
            peers[to] = from;
        }
        for (std::size_t i = 1; i < waiting.size(); ++i) {
            const int from = waiting[i].fd, to = peers[from];
            char piece[1 << 16];
            if (!waiting[i].revents) continue;
            const auto count = ::recv(from, piece, sizeof piece, 0);
            if (count > 0 && ::send(to, piece, static_cast<std::size_t>(count), MSG_NOSIGNAL) == count)
                continue;
            ::shutdown(to, SHUT_WR);
            peers.erase(from);
        }
    }
}

} // namespace

SilentProxy::SilentProxy(int targetPort)
{
    const int listening = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    auto address = loopback(0);
    socklen_t size = sizeof address;
    auto* const plain = reinterpret_cast<sockaddr*>(&address);
    if (::bind(listening, plain, size) != 0 || ::listen(listening, 64) != 0 ||
        ::getsockname(listening, plain, &size) != 0 || (pid = ::fork()) < 0)
        throw std::runtime_error("the proxy cannot start");
    if (pid == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        forward(listening, loopback(targetPort));
    }
    ownPort = ntohs(address.sin_port);
    ::close(listening);
}

SilentProxy::~SilentProxy()
{
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
}

void SilentProxy::setSilent(bool silent)
{
    ::kill(pid, silent ? SIGSTOP : SIGCONT);
}

} // namespace tarnd::test
