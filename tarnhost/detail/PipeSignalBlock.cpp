#include "tarnhost/detail/PipeSignalBlock.h"

#include <pthread.h>

#include <csignal>
#include <ctime>

namespace connector::host::detail {
namespace {

sigset_t pipeSignal()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    return set;
}

} // namespace

PipeSignalBlock::PipeSignalBlock()
{
    const sigset_t set = pipeSignal();
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &set, &before);
    wasBlocked = sigismember(&before, SIGPIPE) == 1;
}

PipeSignalBlock::~PipeSignalBlock()
{
    if (wasBlocked) return;
    const sigset_t set = pipeSignal();
    const timespec now{};
    sigtimedwait(&set, nullptr, &now); // takes what has come meanwhile
    pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

} // namespace connector::host::detail
