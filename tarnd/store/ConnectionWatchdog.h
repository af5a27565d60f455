#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace tarnd {

/// One of the servers that a database may be at.
struct ServerAddress {
    std::string host;
    std::string address; ///< what the name stood for; empty for a local socket
    std::string port;

    auto operator<=>(const ServerAddress&) const = default;
};

/// Ends waits for a server that is silent. The kernel notices a peer that acknowledges nothing; it does not
/// notice one whose machine acknowledges while the server, or something in between, has stopped.
///
/// A wait that lasts is no proof: a statement may take its time. So after a while the same server is asked over a
/// new connection, and only if that gets no answer is the waiting connection shut down, which fails the call.
class ConnectionWatchdog {
public:
    using Moment = std::chrono::steady_clock::time_point;

    /// @param patience how long a wait may last before the server is asked
    /// @param answers asks this one and no other; runs on the watchdog's thread, may block for seconds
    ConnectionWatchdog(std::chrono::milliseconds patience, std::function<bool(const ServerAddress&)> answers);
    ~ConnectionWatchdog();

    /// Watches a call that waits on the socket, from construction to destruction. Any thread.
    /// @pre `socket` stays open meanwhile, whatever the call does: so it is a duplicate of the call's own; `server`,
    /// which it leads to, outlives it unchanged
    class Watch {
    public:
        Watch(ConnectionWatchdog& watchdog, int socket, const ServerAddress& server);
        ~Watch();
        Watch(const Watch&) = delete;
        Watch& operator=(const Watch&) = delete;

    private:
        friend ConnectionWatchdog;

        ConnectionWatchdog& watchdog;
        int connection;
        const ServerAddress& server;
        Moment since;
        std::list<Watch*>::iterator place;
    };

    /// Whether this server was found silent since then: what was connected before it is lost. Any thread.
    bool fellSilent(const ServerAddress& server, Moment since);

    /// Fails every call that has been waiting for a second. Any thread.
    void cutWaits();

private:
    void run();
    void cut(Moment upTo, const ServerAddress* server = nullptr);

    const std::chrono::milliseconds patience;
    const std::function<bool(const ServerAddress&)> answers;
    std::mutex mutex; ///< guards all below, save the thread
    std::condition_variable ended;
    bool ending = false;
    std::list<Watch*> waits;                  ///< oldest first
    std::map<ServerAddress, Moment> silences; ///< when they were found silent, the last time
    std::thread thread;
};

} // namespace tarnd
