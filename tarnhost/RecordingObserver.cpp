#include "tarnhost/RecordingObserver.h"

#include "tarnhost/detail/FailureName.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace connector::host {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t mostTries = 10;       ///< told of one request
constexpr std::size_t mostBytes = 4 * 1024; ///< of one text
constexpr std::chrono::seconds writingPause{1};

/// Texts that are longer end in "…", and nobody can repeat what is cut.
std::string bounded(const std::string& text)
{
    return text.size() <= mostBytes ? text : text.substr(0, mostBytes) + "…";
}

double inMilliseconds(std::chrono::microseconds time)
{
    return std::chrono::duration<double, std::milli>(time).count();
}

std::int64_t sinceEpoch(std::chrono::system_clock::time_point time)
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(time.time_since_epoch()).count();
}

Json toJson(const ObservedAttempt& attempt)
{
    Json told{{"status", attempt.status},
              {"bytesSent", attempt.bytesSent},
              {"bytesReceived", attempt.bytesReceived},
              {"waitingMs", inMilliseconds(attempt.waiting)},
              {"connectingMs", inMilliseconds(attempt.connecting)},
              {"securingMs", inMilliseconds(attempt.securing)},
              {"answeringMs", inMilliseconds(attempt.answering)},
              {"receivingMs", inMilliseconds(attempt.receiving)}};
    if (!attempt.failure.empty()) told["failure"] = bounded(attempt.failure);
    return told;
}

/// Replaces the file, behind links, in one step; not synced, since it is not worth waiting for a disk.
void replaceFile(const std::string& name, std::string_view text)
{
    std::error_code isNew;
    auto file = std::filesystem::canonical(name, isNew);
    if (isNew) file = name;
    // A device or a pipe in whose place a file came would be missed by others.
    if (!isNew && !std::filesystem::is_regular_file(file)) return;
    auto temporary = file.string() + ".XXXXXX";
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC); // mode 0600
    if (fd < 0) return;
    while (!text.empty()) {
        const auto count = ::write(fd, text.data(), text.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) break;
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    ::close(fd);
    if (!text.empty() || ::rename(temporary.c_str(), file.c_str()) != 0) ::unlink(temporary.c_str());
}

} // namespace

RecordingObserver::RecordingObserver(Options how) : options(std::move(how)) {}

RecordingObserver::~RecordingObserver()
{
    try {
        const std::lock_guard lock(mutex);
        if (!because.empty()) replaceFile(options.file, textLocked());
    } catch (...) { // without memory there is no file
    }
}

void RecordingObserver::started(const ObservedRequest& request)
{
    const std::lock_guard lock(mutex);
    records.push_back({request, std::chrono::system_clock::now(), {}, {}, false});
    if (records.size() <= options.most) return;
    // What has ended goes first: what is under way may be what fails next.
    const auto ended = std::ranges::find_if(records, &Record::isFinished);
    records.erase(ended == records.end() ? records.begin() : ended);
}

void RecordingObserver::attempted(const ObservedRequest& request, const ObservedAttempt& attempt)
{
    const std::lock_guard lock(mutex);
    auto* const record = find(request.id);
    if (!record) return;
    if (record->tries.size() == mostTries) record->tries.erase(record->tries.begin());
    record->tries.push_back(attempt);
}

void RecordingObserver::finished(const ObservedRequest& request, const ObservedResult& result)
{
    const std::lock_guard lock(mutex);
    if (auto* const record = find(request.id)) {
        record->result = result;
        record->isFinished = true;
    }
    if (!result.failure.empty() || result.status >= options.failsFrom)
        return fail(request.operation + ": " +
                    (result.failure.empty() ? std::to_string(result.status) : result.failure));
    writeIfDue();
}

void RecordingObserver::unobserved(const std::exception_ptr& failure)
{
    const auto name = detail::nameOf(failure);
    const std::lock_guard lock(mutex);
    fail("A failure that nobody looked at: " + name);
}

std::string RecordingObserver::text() const
{
    const std::lock_guard lock(mutex);
    return textLocked();
}

RecordingObserver::Record* RecordingObserver::find(std::uint64_t id)
{
    const auto found = std::find_if(records.rbegin(), records.rend(),
                                    [&](const Record& each) { return each.request.id == id; });
    return found == records.rend() ? nullptr : &*found;
}

void RecordingObserver::fail(const std::string& why)
{
    because = why;
    isDue = true;
    writeIfDue();
}

void RecordingObserver::writeIfDue()
{
    const auto now = std::chrono::steady_clock::now();
    // Where everything fails, writing must not become the work.
    if (!isDue || (writtenAt && now - *writtenAt < writingPause)) return;
    replaceFile(options.file, textLocked());
    isDue = false;
    writtenAt = now;
}

std::string RecordingObserver::textLocked() const
{
    auto requests = Json::array();
    for (const auto& record : records) {
        const auto& [request, begun, tries, result, isFinished] = record;
        Json told{{"id", request.id},
                  {"begun", sinceEpoch(begun)},
                  {"method", request.operation.substr(0, request.operation.find(' '))},
                  {"service", bounded(request.service)},
                  {"path", bounded(request.path)},
                  {"parameters", bounded(request.parameters)},
                  {"tag", bounded(request.tag)}};
        if (isFinished) {
            told["status"] = result.status;
            told["bytesSent"] = result.bytesSent;
            told["bytesReceived"] = result.bytesReceived;
            told["durationMs"] = inMilliseconds(result.duration);
            told["mayHaveHappened"] = result.mayHaveHappened;
            if (!result.failure.empty()) told["failure"] = bounded(result.failure);
        }
        told["attempts"] = Json::array();
        for (const auto& attempt : tries)
            told["attempts"].push_back(toJson(attempt));
        requests.push_back(std::move(told));
    }
    const Json document{{"format", "tarn requests"},
                        {"version", 1},
                        {"written", sinceEpoch(std::chrono::system_clock::now())},
                        {"because", bounded(because)},
                        {"requests", std::move(requests)}};
    // Texts of applications need not be UTF-8.
    return document.dump(1, ' ', false, Json::error_handler_t::replace) + "\n";
}

} // namespace connector::host
