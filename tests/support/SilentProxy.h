#pragma once

#include <arpa/inet.h>
#include <csignal>
#include <map>
#include <poll.h>
#include <string>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace tarnd::test {

/// A TCP proxy on loopback, in a process of its own, that can fall silent: connections stay, the kernel
/// acknowledges what it gets, nothing arrives. Make it before there are other threads.
class SilentProxy {
public:
    explicit SilentProxy(int targetPort) : listening(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        ::listen(listening, 64); // on a free port of every address
        pid = ::fork();
        if (pid == 0)
            forward({AF_INET, htons(static_cast<std::uint16_t>(targetPort)), {htonl(INADDR_LOOPBACK)}, {}});
    }

    ~SilentProxy()
    {
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        ::close(listening);
    }

    std::string port() const
    {
        sockaddr_in own{};
        socklen_t size = sizeof own;
        ::getsockname(listening, reinterpret_cast<sockaddr*>(&own), &size);
        return std::to_string(ntohs(own.sin_port));
    }

    void setSilent(bool silent) const { ::kill(pid, silent ? SIGSTOP : SIGCONT); }

private:
    [[noreturn]] void forward(const sockaddr_in& target) const
    {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (std::map<int, int> peers;;) {
            std::vector<pollfd> waiting{{listening, POLLIN, 0}};
            for (const auto& [from, to] : peers)
                waiting.push_back({from, POLLIN, 0});
            ::poll(waiting.data(), waiting.size(), -1);
            for (const auto& [from, events, happened] : waiting) {
                if (!happened) continue;
                if (from == listening) {
                    const int client = ::accept(from, nullptr, nullptr),
                              server = ::socket(AF_INET, SOCK_STREAM, 0);
                    ::connect(server, reinterpret_cast<const sockaddr*>(&target), sizeof target);
                    peers.insert({{client, server}, {server, client}});
                    continue;
                }
                char piece[1 << 16];
                const auto count = ::recv(from, piece, sizeof piece, 0);
                if (count > 0 &&
                    ::send(peers[from], piece, static_cast<std::size_t>(count), MSG_NOSIGNAL) == count)
                    continue;
                ::shutdown(peers[from], SHUT_WR);
                peers.erase(from);
            }
        }
    }

    const int listening;
    pid_t pid = -1;
};

} // namespace tarnd::test
