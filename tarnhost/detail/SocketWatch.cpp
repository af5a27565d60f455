#include "tarnhost/detail/SocketWatch.h"

#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <utility>

namespace connector::host::detail {
namespace {

constexpr std::size_t eventsAtOnce = 64;

std::uint32_t bitsOf(int wish)
{
    switch (wish) {
    case CURL_POLL_IN:
        return EPOLLIN;
    case CURL_POLL_OUT:
        return EPOLLOUT;
    case CURL_POLL_INOUT:
        return EPOLLIN | EPOLLOUT;
    default:
        return 0;
    }
}

/// A fault shows in what libcurl then tries, in words of its own.
int actionsOf(std::uint32_t bits)
{
    int actions = 0;
    if (bits & (EPOLLIN | EPOLLHUP | EPOLLERR)) actions |= CURL_CSELECT_IN;
    if (bits & (EPOLLOUT | EPOLLHUP | EPOLLERR)) actions |= CURL_CSELECT_OUT;
    return actions;
}

epoll_event eventOf(int descriptor, std::uint32_t bits)
{
    epoll_event event{};
    event.events = bits;
    event.data.fd = descriptor;
    return event;
}

} // namespace

SocketWatch::SocketWatch(int bellDescriptor)
    : epoll(::epoll_create1(EPOLL_CLOEXEC)), bell(bellDescriptor), events(eventsAtOnce)
{
    // Once for each time it is written to, so that nobody has to read it empty.
    auto ringing = eventOf(bell, EPOLLIN | EPOLLET);
    if (!epoll.isOpen() || ::epoll_ctl(epoll.get(), EPOLL_CTL_ADD, bell, &ringing) != 0)
        throw std::system_error(errno, std::generic_category(), "epoll");
}

void SocketWatch::wait(std::chrono::milliseconds longest)
{
    found = ::epoll_wait(epoll.get(), events.data(), static_cast<int>(events.size()),
                         static_cast<int>(longest.count()));
}

const std::vector<SocketWatch::Ready>& SocketWatch::ready()
{
    current.clear();
    for (int i = 0; i < found; ++i) {
        const int descriptor = events[static_cast<std::size_t>(i)].data.fd;
        if (descriptor == bell) continue;
        const auto known = interests.find(descriptor);
        if (known == interests.end()) continue; // closed since
        if (known->second.wanted == 0)
            drop(descriptor); // its peer has closed it, or a reader has stopped
        else
            current.push_back({descriptor, actionsOf(events[static_cast<std::size_t>(i)].events)});
    }
    found = 0;
    return current;
}

void SocketWatch::follow(curl_socket_t socket, int wish)
{
    Interest& interest = interests[socket];
    interest.wanted = bitsOf(wish);
    if (interest.wanted == 0) {
        if (!interest.lasting) drop(socket);
        return;
    }
    if (interest.wanted == interest.registered) return;
    auto event = eventOf(socket, interest.wanted);
    const int operation = interest.registered == 0 ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
    // Without memory for it the exchange stands still, and its clock ends it.
    if (::epoll_ctl(epoll.get(), operation, socket, &event) == 0) interest.registered = interest.wanted;
}

void SocketWatch::drop(curl_socket_t socket)
{
    const auto known = interests.find(socket);
    if (std::exchange(known->second.registered, 0) != 0)
        ::epoll_ctl(epoll.get(), EPOLL_CTL_DEL, socket, nullptr);
    if (!known->second.lasting) interests.erase(known);
}

void SocketWatch::attend(EasyHandle& handle)
{
    handle.set(CURLOPT_SOCKOPTFUNCTION, &SocketWatch::onOpened);
    handle.set(CURLOPT_SOCKOPTDATA, this);
    handle.set(CURLOPT_CLOSESOCKETFUNCTION, &SocketWatch::onClosing);
    handle.set(CURLOPT_CLOSESOCKETDATA, this);
}

int SocketWatch::onOpened(void* self, curl_socket_t socket, curlsocktype)
{
    static_cast<SocketWatch*>(self)->interests[socket] = Interest{.lasting = true};
    return CURL_SOCKOPT_OK;
}

int SocketWatch::onClosing(void* self, curl_socket_t socket)
{
    // A child process may hold the connection as well: closing alone would leave it in the set.
    auto& watch = *static_cast<SocketWatch*>(self);
    if (const auto known = watch.interests.find(socket); known != watch.interests.end()) {
        known->second.lasting = false;
        watch.drop(socket);
    }
    return ::close(socket);
}

} // namespace connector::host::detail
