#pragma once

#include "tarnhost/detail/Descriptor.h"

#include <sys/eventfd.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <system_error>

namespace connector::host::detail {

/// Calls the transfer loop to the transfers that want something of it. What they want they keep themselves, so that
/// no call is lost and many are as good as one.
class LoopBell {
public:
    /// @throws std::system_error
    LoopBell() : event(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    {
        if (!event.isOpen()) throw std::system_error(errno, std::generic_category(), "eventfd");
    }

    /// On any thread, for a transfer.
    void ring()
    {
        if (!rung.exchange(true)) wake();
    }

    /// On any thread: ends the wait for the sockets, or the next one at once.
    void wake() { ::eventfd_write(event.get(), 1); }

    /// In the loop's turn: whether anybody has rung since the last call.
    bool answer() { return rung.exchange(false); }

    /// Is written to.
    int descriptor() const { return event.get(); }

private:
    const Descriptor event;
    std::atomic<bool> rung{false};
};

} // namespace connector::host::detail
