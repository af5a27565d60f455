#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>

namespace tarncli {

/// The store of a user who named no service: a `tarnd` of the user's own, on this machine only.
///
/// It keeps its data in folders::data(), is started when it is needed, and goes on running until `tarn local stop` or
/// the end of the machine. Which process it is and where it answers is read from the lock that it holds on its data,
/// so that it is found whoever started it and whatever became of that one. Beside the data lie local.json (name and
/// token of its one user; mode 0600), local.lock (held while it is started or stopped) and tarnd.log.
class LocalStore {
public:
    /// The process that holds the data.
    struct Server {
        pid_t pid = 0;
        std::string url; ///< empty: not told yet
        bool answers = false;
    };

    /// How to use the store.
    struct Access {
        std::string url;
        std::string user;
        std::string token;
    };

    LocalStore();

    /// Access to a server that answers; starts one first if there is none. Of many callers at once, one starts it.
    /// @param told  called with a sentence before something is started
    /// @throws Failure when tarnd is not installed, does not start (with what it said) or does not answer
    Access ensureRunning(const std::function<void(const std::string&)>& told);

    /// The server, if one runs.
    std::optional<Server> server() const;

    /// Ends it in order; returns once it is gone. @return whether one was running
    bool stop();

    const std::filesystem::path& dataFolder() const { return data; }

private:
    struct Account;

    std::optional<Account> readAccount() const;
    Account makeAccount() const;
    void start(const std::function<void(const std::string&)>& told) const;
    /// Where the last server answered, which public links name: "127.0.0.1:PORT".
    std::optional<std::string> lastAddress() const;
    bool startAt(const std::string& address) const;

    std::filesystem::path log() const { return data / "tarnd.log"; }

    std::filesystem::path data;
};

} // namespace tarncli
