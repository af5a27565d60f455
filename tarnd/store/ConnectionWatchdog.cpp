#include "tarnd/store/ConnectionWatchdog.h"

#include <sys/socket.h>

#include <unistd.h>

#include <set>
#include <utility>

namespace tarnd {

using Clock = std::chrono::steady_clock;

namespace {

constexpr std::chrono::seconds interval{1};

} // namespace

ConnectionWatchdog::ConnectionWatchdog(std::chrono::milliseconds patience,
                                       std::function<bool(const ServerAddress&)> answers)
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

ConnectionWatchdog::Watch::Watch(ConnectionWatchdog& watchdog, int socket, const ServerAddress& server)
    : watchdog(watchdog), connection(socket), server(server), since(Clock::now())
{
    const std::lock_guard lock(watchdog.mutex);
    place = watchdog.waits.insert(watchdog.waits.end(), this);
}

ConnectionWatchdog::Watch::~Watch()
{
    const std::lock_guard lock(watchdog.mutex);
    watchdog.waits.erase(place);
}

bool ConnectionWatchdog::fellSilent(const ServerAddress& server, Moment since)
{
    const std::lock_guard lock(mutex);
    const auto found = silences.find(server);
    return found != silences.end() && found->second >= since;
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
    std::map<ServerAddress, Moment> answered;
    while (!ended.wait_for(lock, interval, [this] { return ending; })) {
        const auto overdue = Clock::now() - patience;
        std::set<ServerAddress> silent;
        for (const auto* watch : waits)
            if (watch->since <= overdue && answered[watch->server] <= overdue) silent.insert(watch->server);
        for (const auto& server : silent) {
            lock.unlock();
            const bool alive = answers(server);
            lock.lock();
            (alive ? answered : silences)[server] = Clock::now();
            if (!alive) cut(overdue, &server);
        }
    }
}

/// The descriptor stays open, so that its number cannot mean another file; the waiting call sees the end of
/// the connection and fails.
void ConnectionWatchdog::cut(Moment upTo, const ServerAddress* server)
{
    for (const auto* watch : waits)
        if (watch->since <= upTo && (!server || watch->server == *server))
            ::shutdown(watch->connection, SHUT_RDWR);
}

} // namespace tarnd
