#include "tarnd/store/ConnectionWatchdog.h"

#include <sys/socket.h>

#include <unistd.h>

#include <utility>

namespace tarnd {

using Clock = std::chrono::steady_clock;

namespace {

constexpr std::chrono::seconds interval{1};

} // namespace

ConnectionWatchdog::ConnectionWatchdog(std::chrono::milliseconds patience, std::function<bool()> answers)
    : patience(patience), answers(std::move(answers)), thread([this] { run(); })
{
}

ConnectionWatchdog::~ConnectionWatchdog()
{
    {
        const std::lock_guard lock(mutex);
        ending = true;
    }
    ended.notify_one();
    thread.join();
}

ConnectionWatchdog::Watch::Watch(ConnectionWatchdog& watchdog, int socket)
    : watchdog(watchdog), connection(socket), since(Clock::now())
{
    const std::lock_guard lock(watchdog.mutex);
    place = watchdog.waits.insert(watchdog.waits.end(), this);
}

ConnectionWatchdog::Watch::~Watch()
{
    const std::lock_guard lock(watchdog.mutex);
    watchdog.waits.erase(place);
}

void ConnectionWatchdog::cutWaits()
{
    const std::lock_guard lock(mutex);
    cut(Clock::now() - interval);
}

/// Looks once a second instead of being woken by each wait: there are thousands of short ones for a long one.
void ConnectionWatchdog::run()
{
    std::unique_lock lock(mutex);
    Clock::time_point answered;
    while (!ended.wait_for(lock, interval, [this] { return ending; })) {
        const auto overdue = Clock::now() - patience;
        if (waits.empty() || waits.front()->since > overdue || answered > overdue) continue;
        lock.unlock();
        const bool alive = answers();
        lock.lock();
        if (alive)
            answered = Clock::now();
        else
            cut(overdue);
    }
}

/// The descriptor stays open, so that its number cannot mean another file; the waiting call sees the end of
/// the connection and fails.
void ConnectionWatchdog::cut(Clock::time_point upTo)
{
    for (const auto* watch : waits)
        if (watch->since <= upTo) ::shutdown(watch->connection, SHUT_RDWR);
}

} // namespace tarnd
