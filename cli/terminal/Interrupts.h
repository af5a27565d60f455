#pragma once

#include <functional>
#include <list>

namespace tarncli {

/// Lets Ctrl-C (and SIGTERM, SIGHUP) end the program in order: all guards run, then the process ends at once
/// with 128 + the signal's number. Requests under way are abandoned; what the service has stored stays. One of these
/// signals that the program was started to ignore stays ignored.
/// Call it first of all, while there is one thread. @throws Failure when there is no second one to be had
void handleInterrupts();

/// What must be undone when the program is interrupted while this object lives, such as deleting a
/// temporary file.
///
/// The function runs on the thread that waits for signals, under the lock that also makes and destroys
/// guards: it must not make one, and must not wait for anything that does.
class InterruptGuard {
public:
    explicit InterruptGuard(std::function<void()> undo);
    ~InterruptGuard();
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

private:
    std::list<std::function<void()>>::iterator place;
};

} // namespace tarncli
