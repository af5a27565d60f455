#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

namespace tarncli {

class InterruptGuard;

/// How far a transfer is.
struct Progress {
    std::string title;
    std::uint64_t bytes = 0;
    std::uint64_t totalBytes = 0;
    std::uint64_t items = 0;
    std::uint64_t totalItems = 0;
    double bytesPerSecond = 0;
};

/// One line of at most `columns` columns: bar, share, bytes, items when there are several, rate, time left, or that
/// all bytes have moved and are being synced to a disk. What does not fit is left out, the last first.
std::string progressLine(const Progress& progress, int columns);

/// Keeps one line of progress at the bottom of standard error. Does nothing unless shown on a terminal.
class ProgressBar {
public:
    /// @param terminal  descriptor of the terminal; -1: show nothing
    explicit ProgressBar(int terminal);
    ~ProgressBar();

    /// Without totals, which only the end will tell, it counts.
    void begin(const std::string& title, std::uint64_t totalBytes = 0, std::uint64_t totalItems = 0);
    /// Draws at most ten times a second.
    /// @param bytes  moved since begin
    /// @param items  done since begin
    void update(std::uint64_t bytes, std::uint64_t items);
    /// Takes the line away, so that other text can be written; the next update brings it back.
    void erase();
    void end();

private:
    void eraseLocked();
    void measureRate(std::chrono::steady_clock::time_point now);

    int fd;
    std::mutex mutex; ///< guards what follows: Ctrl-C erases the line on a thread of its own
    bool active = false;
    bool drawn = false;
    Progress progress;
    std::chrono::steady_clock::time_point lastDrawn;
    std::chrono::steady_clock::time_point lastMeasured;
    std::uint64_t bytesMeasured = 0;
    std::unique_ptr<InterruptGuard> guard;
};

} // namespace tarncli
