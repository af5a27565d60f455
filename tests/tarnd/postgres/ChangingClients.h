#pragma once

#include "tests/support/TarndProcess.h"

#include <atomic>
#include <map>
#include <mutex>
#include <set>
#include <thread>

namespace tarnd::test {

/// Several tarnd over one database, and clients that change files at random, each its own. What each file may hold
/// follows from the replies.
class ChangingClients {
public:
    static constexpr std::size_t processes = 3, clients = 6;

    /// Starts them all. @param objects an s3:// URL; empty: contents in a folder
    ChangingClients(std::string database, std::string objects);
    ~ChangingClients();

    TarndProcess& process(std::size_t which) { return *services[which]; }

    /// Starts one again that was killed; the clients go on there.
    void start(std::size_t which);

    /// Returns when so many more changes have been acknowledged. @throws when none is for half a minute
    void acknowledge(std::size_t more = 30);

    /// Ends all. What was acknowledged is there, what was refused is not; nor is, after the next sweep, anything else.
    void endAndCheck();

private:
    std::string urlOf(std::size_t client);
    void use(std::size_t client);
    void countAcknowledged();
    void end();

    const std::string database, objects;
    std::vector<std::unique_ptr<TarndProcess>> services;
    std::string session;
    std::map<std::string, std::set<std::string>> possible[clients]; ///< by path; "" stands for no file
    std::vector<std::thread> threads;
    std::atomic<bool> ending = false;
    std::atomic<std::size_t> acknowledged = 0;

    using Clock = std::chrono::steady_clock;
    std::mutex mutex; ///< guards what follows
    std::vector<std::string> urls = std::vector<std::string>(processes);
    Clock::time_point last = Clock::now(); ///< when a change was acknowledged
    Clock::duration longestPause{};        ///< without one
};

} // namespace tarnd::test
