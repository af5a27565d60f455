// delay_proxy PORT MICROSECONDS: forwards connections to PORT of this machine, and holds back what it reads
// for so long, each way. Prints the port that it listens on; ends when its standard input does.
#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <thread>

namespace {

sockaddr_in loopback(int port)
{
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

int newSocket()
{
    return socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
}

void sendAtOnce(int connection)
{
    const int on = 1;
    setsockopt(connection, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

bool writeAll(int to, const char* bytes, ssize_t count)
{
    while (count > 0) {
        const ssize_t written = send(to, bytes, static_cast<std::size_t>(count), MSG_NOSIGNAL);
        if (written <= 0) return false;
        bytes += written;
        count -= written;
    }
    return true;
}

/// Good for questions and answers, which wait for each other; a long stream would be slowed down.
void forward(int from, int to, std::chrono::microseconds delay)
{
    prctl(PR_SET_TIMERSLACK, 1UL); // a sleep otherwise lasts 50 microseconds longer
    std::array<char, 65536> buffer;
    while (true) {
        const ssize_t count = recv(from, buffer.data(), buffer.size(), 0);
        if (count <= 0) break;
        std::this_thread::sleep_for(delay);
        if (!writeAll(to, buffer.data(), count)) break;
    }
    // Ends the other direction, too. The descriptors stay open for it: this process is short-lived.
    shutdown(from, SHUT_RDWR);
    shutdown(to, SHUT_RDWR);
}

int listenAnywhere()
{
    const int listener = newSocket();
    auto address = loopback(0);
    socklen_t size = sizeof address;
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 || listen(listener, 128) != 0)
        return -1;
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    std::cout << ntohs(address.sin_port) << std::endl;
    return listener;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::cerr << "usage: delay_proxy PORT MICROSECONDS\n";
        return 2;
    }
    const auto target = loopback(std::atoi(argv[1]));
    const std::chrono::microseconds delay(std::atoi(argv[2]));
    const int listener = listenAnywhere();
    std::thread([] {
        while (std::cin.get() != EOF) {
        }
        _exit(0);
    }).detach();

    while (true) {
        const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) return 1;
        const int server = newSocket();
        if (connect(server, reinterpret_cast<const sockaddr*>(&target), sizeof target) != 0) {
            close(server);
            close(client);
            continue;
        }
        sendAtOnce(client);
        sendAtOnce(server);
        std::thread(forward, client, server, delay).detach();
        std::thread(forward, server, client, delay).detach();
    }
}
