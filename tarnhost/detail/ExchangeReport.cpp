#include "tarnhost/detail/ExchangeReport.h"

#include <algorithm>
#include <atomic>
#include <string_view>
#include <utility>

namespace connector::host::detail {
namespace {

using std::chrono::microseconds;

constexpr std::chrono::milliseconds leastPause{100}; ///< between two calls of a progress callback
constexpr std::string_view servicePath = "/service/v1/";
constexpr std::string_view linksOfItems = "/service/v1/public/urls/"; ///< an item follows, and no link
constexpr const char* hidden = "/…";

/// What may be told of a query.
constexpr std::string_view told[] = {"accessMode",       "allowNonExistingUser",
                                     "bucket",           "createMode",
                                     "createNewVersion", "forceRecursive",
                                     "handleOperation",  "moveTargetOverwrite",
                                     "operation",        "path",
                                     "subject",          "targetBucket",
                                     "targetPath",       "truncate",
                                     "versionLabel"};

std::string parametersOf(std::string_view url)
{
    std::string parameters;
    const auto begin = url.find('?');
    auto rest = begin == url.npos ? std::string_view() : url.substr(begin + 1);
    rest = rest.substr(0, rest.find('#'));
    while (!rest.empty()) {
        const auto parameter = rest.substr(0, rest.find('&'));
        rest.remove_prefix(std::min(rest.size(), parameter.size() + 1));
        if (std::ranges::find(told, parameter.substr(0, parameter.find('='))) == std::end(told)) continue;
        if (!parameters.empty()) parameters += '&';
        parameters += parameter;
    }
    return parameters;
}

/// Only what is known to hold no secret is told.
void describe(ObservedRequest& request, const std::string& url, const std::string& method,
              const std::string& path)
{
    const auto service = path.find(servicePath);
    if (service == std::string::npos || path.find("/public/") < service) {
        const auto wordEnd = path.find('/', 1);
        request.operation = method + " other";
        request.path = wordEnd == std::string::npos ? path : path.substr(0, wordEnd) + hidden;
        return;
    }
    const auto begin = service + servicePath.size();
    const auto end = path.find('/', begin);
    const std::string area = path.substr(begin, end == std::string::npos ? end : end - begin);
    request.operation = method + " " + area;
    const bool namesRight =
        area == "filehandle" || (area == "public" && !path.substr(service).starts_with(linksOfItems));
    request.path = namesRight && end != std::string::npos ? path.substr(0, end) + hidden : path;
    request.parameters = parametersOf(url);
}

ObservedRequest observed(const UrlParts& target, const std::string& url, const std::string& method,
                         const SharedCallOptions& call)
{
    static std::atomic<std::uint64_t> count = 0;
    ObservedRequest request;
    request.id = ++count;
    describe(request, url, method, target.path);
    request.service = target.origin;
    if (call) request.tag = call->tag;
    return request;
}

microseconds timeOf(CURL* handle, CURLINFO which)
{
    curl_off_t time = 0;
    curl_easy_getinfo(handle, which, &time);
    return microseconds(time);
}

template <class Time>
microseconds since(Time point)
{
    return std::chrono::duration_cast<microseconds>(Time::clock::now() - point);
}

} // namespace

struct ExchangeReport::Listeners {
    template <class Telling>
    void tell(Telling telling) const
    {
        for (const auto& observer : options->observers) {
            try {
                telling(*observer);
            } catch (...) { // it must not disturb the request, and nobody else could do anything about it
            }
        }
    }

    void progressed(const TransferProgress& progress) const
    {
        if (!call || !call->progress) return;
        try {
            call->progress(progress);
        } catch (...) { // as above
        }
    }

    const ObservedRequest request;
    const SharedCallOptions call;
    const std::shared_ptr<const HttpOptions> options;
};

std::unique_ptr<ExchangeReport> ExchangeReport::of(const UrlParts& target, const std::string& url,
                                                   const std::string& method, const SharedCallOptions& call,
                                                   const std::shared_ptr<const HttpOptions>& options,
                                                   const std::shared_ptr<DeliveryThreads>& threads)
{
    if (options->observers.empty() && !(call && call->progress)) return nullptr;
    return std::unique_ptr<ExchangeReport>(new ExchangeReport(target, url, method, call, options, threads));
}

ExchangeReport::ExchangeReport(const UrlParts& target, const std::string& url, const std::string& method,
                               const SharedCallOptions& call,
                               const std::shared_ptr<const HttpOptions>& options,
                               const std::shared_ptr<DeliveryThreads>& threads)
    : jobs(std::make_shared<OrderedJobs>(threads))
    , listeners(
          std::make_shared<const Listeners>(Listeners{observed(target, url, method, call), call, options}))
{
    if (options->observers.empty()) return;
    jobs->post([to = listeners] { to->tell([&](RequestObserver& one) { one.started(to->request); }); });
}

void ExchangeReport::beginTry()
{
    attempt.waiting = since(waitingSince);
}

void ExchangeReport::progressed(const TransferProgress& now)
{
    if (now == told || !listeners->call || !listeners->call->progress) return;
    const auto time = Clock::now();
    if (time - toldAt < leastPause) return; // it is asked again before the thread rests long
    toldAt = time;
    told = now;
    jobs->post([to = listeners, now] { to->progressed(now); });
}

void ExchangeReport::measure(CURL* handle)
{
    const auto total = timeOf(handle, CURLINFO_TOTAL_TIME_T);
    const auto connected = timeOf(handle, CURLINFO_CONNECT_TIME_T);
    const auto secured = timeOf(handle, CURLINFO_APPCONNECT_TIME_T);
    const auto ready = timeOf(handle, CURLINFO_PRETRANSFER_TIME_T);
    const auto answered = timeOf(handle, CURLINFO_STARTTRANSFER_TIME_T);
    // What was not reached is 0; the time until the end was then spent on the way there.
    const bool isReady = ready > microseconds(0), isAnswered = answered > microseconds(0);
    attempt.connecting = connected > microseconds(0) || isReady ? connected : total;
    if (connected > microseconds(0))
        attempt.securing = std::max(microseconds(0), (isReady ? secured : total) - connected);
    if (isReady) attempt.answering = (isAnswered ? answered : total) - ready;
    if (isAnswered) attempt.receiving = total - answered;
}

void ExchangeReport::complete(std::uint16_t status, const TransferProgress& moved, std::string failure)
{
    attempt.status = status;
    attempt.bytesSent = moved.sent;
    attempt.bytesReceived = moved.received;
    attempt.failure = std::move(failure);
    result.bytesSent += moved.sent;
    result.bytesReceived += moved.received;
}

void ExchangeReport::endTry(std::uint16_t status, const TransferProgress& moved, std::string failure,
                            std::chrono::milliseconds pause)
{
    complete(status, moved, std::move(failure));
    attempt.pause = pause;
    ObservedAttempt next;
    next.number = attempt.number + 1;
    jobs->post([to = listeners, ended = std::exchange(attempt, next)] {
        to->tell([&](RequestObserver& one) { one.attempted(to->request, ended); });
    });
    waitingSince = Clock::now() + pause;
}

void ExchangeReport::finish(std::uint16_t status, const TransferProgress& moved, std::string failure,
                            bool mayHaveHappened)
{
    complete(status, moved, std::move(failure));
    listeners->progressed(moved);
    listeners->tell([&](RequestObserver& one) { one.attempted(listeners->request, attempt); });
    result.status = status;
    result.attempts = attempt.number;
    result.duration = since(begun);
    result.failure = attempt.failure;
    result.mayHaveHappened = mayHaveHappened;
    listeners->tell([&](RequestObserver& one) { one.finished(listeners->request, result); });
}

} // namespace connector::host::detail
