#include "tarnhost/detail/Interruption.h"

#include <poll.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <system_error>

namespace connector::host::detail {

thread_local Interruption* Interruption::innermost = nullptr;

void Interruption::ring()
{
    std::lock_guard lock(mutex);
    hasRung = true;
    if (event.isOpen()) eventfd_write(event.get(), 1);
}

int Interruption::descriptor()
{
    std::lock_guard lock(mutex);
    if (event.isOpen()) return event.get();
    event = Descriptor(eventfd(hasRung ? 1 : 0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!event.isOpen())
        throw std::system_error(errno, std::generic_category(), "Could not watch the content");
    return event.get();
}

bool waitUntilReady(int file, short events, Interruption* interruption)
{
    pollfd watched[] = {{file, events, 0}, {interruption ? interruption->descriptor() : -1, POLLIN, 0}};
    while (poll(watched, 2, -1) < 0) {
        if (errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "Could not watch the content");
    }
    return watched[1].revents == 0;
}

} // namespace connector::host::detail
