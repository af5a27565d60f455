#include "tarnhost/detail/ExchangeClock.h"

#include <algorithm>
#include <sstream>

namespace connector::host::detail {
namespace {

using std::chrono::milliseconds;

/// "30 seconds", "0.5 seconds"
std::string seconds(milliseconds time)
{
    std::ostringstream text;
    text << std::chrono::duration<double>(time).count() << " seconds";
    return text.str();
}

} // namespace

std::string ExchangeClock::overdue(Time now, const Progress& progress)
{
    const std::uint64_t bytes = progress.replying ? progress.bytesIn : progress.bytesOut;
    enter(progress.replying ? Stage::receiving : progress.sent ? Stage::waiting : Stage::sending, now, bytes);
    if (stage != Stage::sending && progress.document && now - answerDue >= options.documentTimeout) {
        return "The reply was not complete after " + seconds(options.documentTimeout) + ".";
    }
    if (stage == Stage::waiting) {
        if (now - answerDue < options.replyTimeout) return {};
        return "No reply came within " + seconds(options.replyTimeout) + ".";
    }
    // A service that stalls brings nothing to be held up, so that its window still runs out.
    if (progress.held) beginWindow(now, bytes);
    if (!stalled(now, bytes)) return {};
    return std::string(stage == Stage::sending ? "The request was taken" : "The reply came") +
           " at less than " + std::to_string(options.leastRate) + " bytes per second for " +
           seconds(options.stallWindow) + ".";
}

void ExchangeClock::enter(Stage next, Time now, std::uint64_t bytes)
{
    if (stage == next) return;
    // Interim replies take the stage back from receiving to waiting; the service has no more time for that.
    if (next != Stage::sending && answerDue == Time()) answerDue = now;
    stage = next;
    beginWindow(now, bytes);
}

void ExchangeClock::beginWindow(Time now, std::uint64_t bytes)
{
    windowBegin = now;
    before = bytes;
}

bool ExchangeClock::stalled(Time now, std::uint64_t bytes)
{
    if (now - windowBegin < options.stallWindow) return false;
    const auto due = options.leastRate * static_cast<std::uint64_t>(options.stallWindow.count()) / 1000;
    const bool tooFew = bytes - before < due;
    beginWindow(now, bytes);
    return tooFew;
}

milliseconds ExchangeClock::tick(const HttpOptions& options)
{
    const auto shortest = std::min({options.replyTimeout, options.stallWindow, options.documentTimeout});
    return std::clamp(shortest / 10, milliseconds(10), milliseconds(1000));
}

} // namespace connector::host::detail
