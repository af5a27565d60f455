#pragma once

#include "tarnhost/RequestObserver.h"

#include <chrono>
#include <cstddef>
#include <deque>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace connector::host {

/// Remembers the last requests, and writes them into a file as soon as something fails: for a report, and for
/// `tarn replay FILE`, which repeats them against a service on one's own machine. docs/recording.md has its format.
///
/// The file (mode 0600) is replaced in one step, at most once in a second; after a failure it is written once more at the
/// end. What cannot be written, as to a device, is lost without a word.
class TARN_API RecordingObserver : public RequestObserver {
public:
    struct Options {
        std::string file;
        std::size_t most = 100;        ///< requests that are remembered, those under way included
        std::uint16_t failsFrom = 500; ///< replies with a status from there on are failures, too
    };

    explicit RecordingObserver(Options options);
    ~RecordingObserver() override;

    void started(const ObservedRequest& request) override;
    void attempted(const ObservedRequest& request, const ObservedAttempt& attempt) override;
    void finished(const ObservedRequest& request, const ObservedResult& result) override;
    void unobserved(const std::exception_ptr& failure) override;

    /// The text of the file, as it would be now. On any thread.
    std::string text() const;

private:
    struct Record {
        ObservedRequest request;
        std::chrono::system_clock::time_point begun;
        std::vector<ObservedAttempt> tries; ///< the last ones
        ObservedResult result;
        bool isFinished = false;
    };

    Record* find(std::uint64_t id);
    void fail(const std::string& why);
    void writeIfDue();
    std::string textLocked() const;

    const Options options;
    mutable std::mutex mutex;   ///< guards what follows, and that one thread at a time writes
    std::deque<Record> records; ///< in the order of their start
    std::string because;        ///< of the last failure
    bool isDue = false;         ///< something has failed that is not in the file yet
    std::optional<std::chrono::steady_clock::time_point> writtenAt;
};

} // namespace connector::host
