#include "tarnd/ListenSocket.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <netdb.h>
#include <netinet/in.h>
#include <stdexcept>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace tarnd {

namespace {

struct HostPort {
    std::string host; ///< empty: all interfaces
    std::string port;
};

HostPort split(const std::string& address)
{
    const auto colon = address.rfind(':');
    if (colon == std::string::npos || colon + 1 == address.size())
        throw std::runtime_error("'" + address +
                                 "' is not an address to listen on. Give HOST:PORT, for example "
                                 "127.0.0.1:7070.");
    auto host = address.substr(0, colon);
    if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
    return {host, address.substr(colon + 1)};
}

using AddressList = std::unique_ptr<addrinfo, decltype(&freeaddrinfo)>;

AddressList resolve(const std::string& address)
{
    const auto [host, port] = split(address);
    addrinfo hints{};
    // A port is a number: a lookup of names of services reads files that a container may lack.
    hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    // ":7070" is IPv4 alone, since whether an IPv6 socket takes both differs from machine to machine.
    hints.ai_family = host.empty() ? AF_INET : AF_UNSPEC;
    addrinfo* found = nullptr;
    if (const int error = getaddrinfo(host.empty() ? nullptr : host.c_str(), port.c_str(), &hints, &found))
        throw std::runtime_error("Could not understand the address '" + address +
                                 "': " + gai_strerror(error) + ".");
    return {found, &freeaddrinfo};
}

std::string adviceFor(int error)
{
    switch (error) {
    case EADDRINUSE:
        return " Stop the program that listens there, or choose another port with --listen.";
    case EACCES:
        return " Ports below 1024 need more rights; choose a higher one with --listen.";
    case EADDRNOTAVAIL:
        return " This machine has no such address; choose another with --listen.";
    default:
        return "";
    }
}

/// As sd_listen_fds(3) says; -1: there is none.
int handedOver()
{
    const char* process = std::getenv("LISTEN_PID");
    const char* count = std::getenv("LISTEN_FDS");
    if (process == nullptr || count == nullptr || process != std::to_string(getpid())) return -1;
    constexpr int first = 3;
    const auto ask = [](int option) {
        int answer = -1;
        socklen_t length = sizeof answer;
        getsockopt(first, SOL_SOCKET, option, &answer, &length);
        return answer;
    };
    const int family = ask(SO_DOMAIN);
    if (count != std::string("1") || ask(SO_ACCEPTCONN) != 1 || (family != AF_INET && family != AF_INET6))
        throw std::runtime_error("One listening TCP socket has to be handed over, as descriptor 3, and not " +
                                 std::string(count) + " of whatever kind.");
    fcntl(first, F_SETFD, FD_CLOEXEC);
    fcntl(first, F_SETFL, fcntl(first, F_GETFL) | O_NONBLOCK);
    return first;
}

int listenOn(const std::string& address)
{
    const auto list = resolve(address);
    const int fd = socket(list->ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    const int on = 1;
    // A restarted service takes its port again at once, although connections of the last run linger.
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (fd >= 0 && bind(fd, list->ai_addr, list->ai_addrlen) == 0 && listen(fd, SOMAXCONN) == 0) return fd;
    const int error = errno;
    if (fd >= 0) close(fd);
    throw std::runtime_error("Could not listen on " + address + ": " + std::strerror(error) + "." +
                             adviceFor(error));
}

bool onLoopback(const sockaddr_storage& address)
{
    if (address.ss_family == AF_INET)
        return ntohl(reinterpret_cast<const sockaddr_in&>(address).sin_addr.s_addr) >> 24 == 127;
    return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6&>(address).sin6_addr);
}

std::string nameOf(const sockaddr_storage& address, socklen_t length)
{
    char host[NI_MAXHOST];
    char port[NI_MAXSERV];
    if (getnameinfo(reinterpret_cast<const sockaddr*>(&address), length, host, sizeof host, port, sizeof port,
                    NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        throw std::runtime_error("Could not name the address listened on.");
    return (address.ss_family == AF_INET6 ? "[" + std::string(host) + "]" : std::string(host)) + ":" + port;
}

} // namespace

ListenSocket::ListenSocket(const std::string& address) : fd(handedOver())
{
    if (fd < 0) fd = listenOn(address);
    // What was bound, not what was asked for: with port 0 the kernel has chosen, and a name may have several addresses.
    sockaddr_storage bound{};
    socklen_t length = sizeof bound;
    getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &length);
    loopback = onLoopback(bound);
    hostAndPort = nameOf(bound, length);
}

ListenSocket::~ListenSocket()
{
    if (fd >= 0) close(fd);
}

int ListenSocket::release()
{
    return std::exchange(fd, -1);
}

} // namespace tarnd
