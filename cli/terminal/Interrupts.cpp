#include "cli/terminal/Interrupts.h"

#include <csignal>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace tarncli {

namespace {

struct Guards {
    std::mutex mutex; ///< guards `undo`; held for good once the end has come
    std::list<std::function<void()>> undo;
};

/// Never destroyed: the waiting thread outlives main.
Guards& guards()
{
    static auto& instance = *new Guards;
    return instance;
}

[[noreturn]] void endAtSignal(const sigset_t& signals)
{
    int signal = 0;
    while (sigwait(&signals, &signal) != 0) {
    }
    guards().mutex.lock();
    for (const auto& undo : guards().undo)
        undo();
    _exit(128 + signal);
}

} // namespace

void handleInterrupts()
{
    std::signal(SIGPIPE, SIG_IGN); // a closed connection is an error of its request, not of the program
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    guards();
    // A thread that waits may take locks and call anything, which a signal handler may not.
    std::thread([signals] { endAtSignal(signals); }).detach();
}

InterruptGuard::InterruptGuard(std::function<void()> undo)
{
    const std::lock_guard lock(guards().mutex);
    place = guards().undo.insert(guards().undo.end(), std::move(undo));
}

InterruptGuard::~InterruptGuard()
{
    const std::lock_guard lock(guards().mutex);
    guards().undo.erase(place);
}

} // namespace tarncli
