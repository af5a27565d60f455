#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <list>
#include <mutex>
#include <thread>

namespace tarnd {

/// Ends waits for a server that is silent. The kernel notices a peer that acknowledges nothing; it does not
/// notice one whose machine acknowledges while the server, or something in between, has stopped.
///
/// A wait that lasts is no proof: a statement may take its time. So after a while the server is asked over a
/// new connection, and only if that gets no answer is the waiting connection shut down, which fails the call.
class ConnectionWatchdog {
public:
    /// @param patience how long a wait may last before the server is asked
    /// @param answers asks it; runs on the watchdog's thread, may block for seconds
    ConnectionWatchdog(std::chrono::milliseconds patience, std::function<bool()> answers);
    ~ConnectionWatchdog();

    /// Watches a call that waits on the socket, from construction to destruction. Any thread.
    /// @pre `socket` stays open meanwhile, whatever the call does: so it is a duplicate of the call's own
    class Watch {
    public:
        Watch(ConnectionWatchdog& watchdog, int socket);
        ~Watch();
        Watch(const Watch&) = delete;
        Watch& operator=(const Watch&) = delete;

    private:
        friend ConnectionWatchdog;

        ConnectionWatchdog& watchdog;
        int connection;
        std::chrono::steady_clock::time_point since;
        std::list<Watch*>::iterator place;
    };

    /// Fails every call that has been waiting for a second. Any thread.
    void cutWaits();

private:
    void run();
    void cut(std::chrono::steady_clock::time_point upTo);

    const std::chrono::milliseconds patience;
    const std::function<bool()> answers;
    std::mutex mutex; ///< guards all below, save the thread
    std::condition_variable ended;
    bool ending = false;
    std::list<Watch*> waits; ///< oldest first
    std::thread thread;
};

} // namespace tarnd
