#include "tarnhost/LogObserver.h"

#include "tarnhost/detail/FailureName.h"

#include <sstream>
#include <utility>

namespace connector::host {
namespace {

/// "12.3 ms"
std::string milliseconds(std::chrono::microseconds time)
{
    std::ostringstream text;
    text.precision(1);
    text << std::fixed << std::chrono::duration<double, std::milli>(time).count() << " ms";
    return text.str();
}

/// "200, 0 B sent, 1204 B received"
template <class Told>
std::string outcome(const Told& told)
{
    return (told.failure.empty() ? std::to_string(told.status) : told.failure) + ", " +
           std::to_string(told.bytesSent) + " B sent, " + std::to_string(told.bytesReceived) + " B received";
}

} // namespace

LogObserver::LogObserver(std::function<void(const std::string& line)> writer, Detail much)
    : write(std::move(writer)), detail(much)
{
}

void LogObserver::attempted(const ObservedRequest& request, const ObservedAttempt& attempt)
{
    if (detail != Detail::tries) return;
    std::ostringstream line;
    line << '#' << request.id << " try " << attempt.number << ": " << outcome(attempt) << "; waiting "
         << milliseconds(attempt.waiting) << ", connecting " << milliseconds(attempt.connecting)
         << ", securing " << milliseconds(attempt.securing) << ", answering "
         << milliseconds(attempt.answering) << ", receiving " << milliseconds(attempt.receiving);
    if (attempt.pause) line << "; again after " << milliseconds(*attempt.pause);
    write(line.str());
}

void LogObserver::finished(const ObservedRequest& request, const ObservedResult& result)
{
    std::ostringstream line;
    line << '#' << request.id << ' ' << request.operation << ' ' << request.path;
    if (!request.tag.empty()) line << " [" << request.tag << ']';
    line << ": " << outcome(result);
    if (result.attempts > 1) line << ", " << result.attempts << " tries";
    if (result.mayHaveHappened) line << ", may have happened";
    line << ", " << milliseconds(result.duration);
    write(line.str());
}

void LogObserver::unobserved(const std::exception_ptr& failure)
{
    write("A failure that nobody looked at: " + detail::nameOf(failure));
}

} // namespace connector::host
