#include "cli/terminal/ProgressBar.h"

#include "cli/terminal/Interrupts.h"
#include "cli/terminal/Quantities.h"
#include "cli/terminal/TerminalSize.h"
#include "cli/terminal/Text.h"

#include <algorithm>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace tarncli {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto drawInterval = 100ms;
constexpr auto measureInterval = 500ms;
constexpr int barColumns = 20;

void writeTo(int fd, std::string_view text)
{
    [[maybe_unused]] const auto count = ::write(fd, text.data(), text.size()); // nobody misses a lost bar
}

double shareOf(const Progress& progress)
{
    const bool byBytes = progress.totalBytes > 0;
    const auto done = static_cast<double>(byBytes ? progress.bytes : progress.items);
    const auto total = static_cast<double>(byBytes ? progress.totalBytes : progress.totalItems);
    return total > 0 ? std::min(1.0, done / total) : 0.0;
}

std::string bar(double share)
{
    std::string result = "[";
    for (int i = 0; i < barColumns; ++i)
        result += i < static_cast<int>(share * barColumns) ? "#" : "-";
    return result + "]";
}

std::string percent(double share)
{
    const auto text = std::to_string(static_cast<int>(share * 100));
    return std::string(3 - std::min<std::size_t>(3, text.size()), ' ') + text + "%";
}

std::string timeLeft(const Progress& progress)
{
    const auto left = static_cast<double>(progress.totalBytes - progress.bytes) / progress.bytesPerSecond;
    return humanDuration(std::chrono::seconds(static_cast<long long>(std::min(left, 3.6e6)))) + " left";
}

std::vector<std::string> parts(const Progress& progress)
{
    if (progress.totalBytes == 0 && progress.totalItems == 0)
        return {progress.title, counted(progress.items, "request")};
    const double share = shareOf(progress);
    std::vector<std::string> result{progress.title, bar(share) + percent(share)};
    if (progress.totalBytes > 0)
        result.push_back(humanSize(progress.bytes) + " of " + humanSize(progress.totalBytes));
    if (progress.totalItems > 1)
        result.push_back(std::to_string(progress.items) + "/" + std::to_string(progress.totalItems));
    if (progress.totalBytes > 0 && progress.bytes == progress.totalBytes) {
        result.emplace_back("syncing");
    } else if (progress.bytesPerSecond > 0) {
        result.push_back(humanSize(static_cast<std::uint64_t>(progress.bytesPerSecond)) + "/s");
        if (progress.totalBytes > 0) result.push_back(timeLeft(progress));
    }
    return result;
}

} // namespace

std::string progressLine(const Progress& progress, int columns)
{
    std::string line;
    for (const auto& part : parts(progress)) {
        const auto longer = line.empty() ? part : line + "  " + part;
        if (displayWidth(longer) > columns) break;
        line = longer;
    }
    return line.empty() ? cutToWidth(progress.title, columns) : line;
}

ProgressBar::ProgressBar(int terminal) : fd(terminal)
{
    if (fd >= 0) guard = std::make_unique<InterruptGuard>([this] { erase(); });
}

ProgressBar::~ProgressBar()
{
    guard.reset();
    end();
}

void ProgressBar::begin(const std::string& title, std::uint64_t totalBytes, std::uint64_t totalItems)
{
    const std::lock_guard lock(mutex);
    progress = {title, 0, totalBytes, 0, totalItems, 0};
    bytesMeasured = 0;
    lastMeasured = lastDrawn = Clock::now(); // what is over at once shows no bar
    active = fd >= 0;
}

void ProgressBar::update(std::uint64_t bytes, std::uint64_t items)
{
    const std::lock_guard lock(mutex);
    const auto now = Clock::now();
    if (!active || now - lastDrawn < drawInterval) return;
    lastDrawn = now;
    progress.bytes = std::min(bytes, progress.totalBytes);
    progress.items = items;
    measureRate(now);
    writeTo(fd, "\r\033[K" + progressLine(progress, terminalColumns(fd).value_or(80) - 1));
    drawn = true;
}

void ProgressBar::measureRate(Clock::time_point now)
{
    const std::chrono::duration<double> passed = now - lastMeasured;
    if (passed < measureInterval) return;
    // What starts over goes back.
    const auto more = progress.bytes > bytesMeasured ? progress.bytes - bytesMeasured : 0;
    const double rate = static_cast<double>(more) / passed.count();
    // Smoothed, so that the time left can be read.
    progress.bytesPerSecond = progress.bytesPerSecond > 0 ? 0.7 * progress.bytesPerSecond + 0.3 * rate : rate;
    bytesMeasured = progress.bytes;
    lastMeasured = now;
}

void ProgressBar::erase()
{
    const std::lock_guard lock(mutex);
    eraseLocked();
}

void ProgressBar::eraseLocked()
{
    if (drawn) writeTo(fd, "\r\033[K");
    drawn = false;
}

void ProgressBar::end()
{
    const std::lock_guard lock(mutex);
    eraseLocked();
    active = false;
}

} // namespace tarncli
