#pragma once

#include "tarnhost/detail/Descriptor.h"

#include <mutex>
#include <utility>

namespace connector::host::detail {

/// Ends what a subscriber waits for within one of its signals: as they come one after the other, none could tell it.
class Interruption {
public:
    /// While it lives, the signals that this thread gives can be interrupted.
    class Scope {
    public:
        explicit Scope(Interruption& of) : before(std::exchange(innermost, &of)) {}

        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

        ~Scope() { innermost = before; }

    private:
        Interruption* const before;
    };

    /// Of the signal that this thread is in; null: it cannot be interrupted.
    static Interruption* current() { return innermost; }

    /// Ends the wait, and every later one. On any thread.
    void ring();

    /// What to wait for beside: readable once it has rung. @throws std::system_error
    int descriptor();

private:
    static thread_local Interruption* innermost;

    std::mutex mutex; ///< guards the two below
    Descriptor event; ///< open once somebody has waited
    bool hasRung = false;
};

/// Waits until a file is ready for `events`, those of poll(), or interrupted.
/// @param interruption  null: nothing interrupts it
/// @return false when it was interrupted  @throws std::system_error
bool waitUntilReady(int file, short events, Interruption* interruption);

} // namespace connector::host::detail
