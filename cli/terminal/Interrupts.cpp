#include "cli/terminal/Interrupts.h"

#include "cli/terminal/Failure.h"

#include <csignal>
#include <mutex>
#include <system_error>
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

/// By whoever has started this program, as nohup does; one that is blocked would come all the same.
bool isIgnored(int signal)
{
    struct sigaction before {};

    return ::sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_IGN;
}

} // namespace

void handleInterrupts()
{
    // A closed connection and a file that may grow no further are errors of what meets them, not of the program.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        if (!isIgnored(signal)) sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    guards();
    // A thread that waits may take locks and call anything, which a signal handler may not.
    try {
        std::thread([signals] { endAtSignal(signals); }).detach();
    } catch (const std::system_error& error) {
        throw Failure(ExitCode::failure, "No thread could be made: " + error.code().message() +
                                             ". The limit of processes (`ulimit -u`) may have been reached.");
    }
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
