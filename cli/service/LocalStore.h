#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <sys/types.h>

namespace tarncli {

/// The store of a user who named no service: a `tarnd` of the user's own, on this machine only.
///
/// It keeps its data in folders::data(), is started when it is needed, and goes on running until
/// `tarn local stop` or the end of the machine. Beside its data lie local.json (address, process, and the
/// token of its one user; mode 0600), local.lock (held while it is started) and tarnd.log.
class LocalStore {
public:
    /// A service that answers.
    struct Running {
        std::string url;
        pid_t pid = 0;
        std::string user;
        std::string token;
    };

    LocalStore();

    /// The running service; starts it first if there is none. Of many callers at once, one starts it.
    /// @param told  called with a sentence before something is started
    /// @throws Failure when tarnd is not installed or does not start, with what it said
    Running ensureRunning(const std::function<void(const std::string&)>& told);

    /// The running service, if there is one.
    std::optional<Running> running() const;

    /// Ends it in order; returns once it is gone. @return whether one was running
    bool stop();

    const std::filesystem::path& dataFolder() const { return data; }

private:
    struct Record;
    std::optional<Record> readRecord() const;
    void writeRecord(const Record& record) const;
    void makeUser(Record& record) const;
    void start(Record& record) const;
    void stopProcess(Record& record) const;

    std::filesystem::path data;
};

} // namespace tarncli
