#include "tarnhost/detail/TransferLoop.h"

#include "tarnhost/HostErrors.h"
#include "tarnhost/detail/PipeSignalBlock.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace connector::host::detail {
namespace {

/// Whatever comes to be done wakes the thread earlier.
constexpr std::chrono::milliseconds idle{10'000};

/// Once per process; libcurl's part of the process is never taken down, since others may use it.
void startLibcurl()
{
    static const CURLcode started = curl_global_init(CURL_GLOBAL_DEFAULT);
    if (started != CURLE_OK) throw std::runtime_error(curl_easy_strerror(started));
}

} // namespace

TransferLoop::TransferLoop(std::shared_ptr<DeliveryThreads> deliveryThreads, const HttpOptions& httpOptions)
    : threads(std::move(deliveryThreads))
    , options(httpOptions)
    , laneLimit(options.connectionsPerHost != 0 ? options.connectionsPerHost : 1)
    , tick(ExchangeClock::tick(options))
    , callers(std::make_shared<LoopBell>())
    , sockets(callers->descriptor())
    , limits{RateLimit(options.mostRate), RateLimit(options.mostRate)}
{
    startLibcurl();
    multi.reset(curl_multi_init());
    if (!multi) throw std::bad_alloc();
    curl_multi_setopt(multi.get(), CURLMOPT_MAXCONNECTS, static_cast<long>(2 * laneLimit));
    curl_multi_setopt(multi.get(), CURLMOPT_SOCKETFUNCTION, &TransferLoop::onSocket);
    curl_multi_setopt(multi.get(), CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi.get(), CURLMOPT_TIMERFUNCTION, &TransferLoop::onTimer);
    curl_multi_setopt(multi.get(), CURLMOPT_TIMERDATA, this);
    threads->attend(*this);
}

TransferLoop::~TransferLoop()
{
    stop();
}

void TransferLoop::submit(Transfer transfer)
{
    transfer->listen(callers);
    if (transfer->origin().starts_with("https") || !options.proxy.empty()) writesTls = true;
    {
        std::lock_guard lock(mutex);
        if (!stopped) arrivals.push_back(std::move(transfer));
    }
    if (transfer)
        abandon(std::move(transfer));
    else
        driveArrivals();
}

void TransferLoop::stop()
{
    std::lock_guard once(stopping);
    {
        std::lock_guard lock(mutex);
        if (std::exchange(stopped, true)) return;
    }
    threads->dismiss(*this);
    std::lock_guard turn(driving);
    const PipeSignalBlock block; // closing a connection writes to it
    abandonAll();
    idleHandles.clear();
    multi.reset();
}

int TransferLoop::onSocket(CURL*, curl_socket_t socket, int wish, void* self, void*)
{
    static_cast<TransferLoop*>(self)->sockets.follow(socket, wish);
    return 0;
}

int TransferLoop::onTimer(CURLM*, long milliseconds, void* self)
{
    auto& timer = static_cast<TransferLoop*>(self)->timer;
    timer.reset();
    if (milliseconds >= 0) timer = Time::clock::now() + std::chrono::milliseconds(milliseconds);
    return 0;
}

void TransferLoop::wait()
{
    const auto rest = std::chrono::ceil<std::chrono::milliseconds>(restUntil - Time::clock::now());
    if (!hasArrivals()) sockets.wait(std::max(rest, std::chrono::milliseconds(0)));
    std::lock_guard turn(driving);
    if (drive(sockets.ready())) restUntil = due();
}

void TransferLoop::driveArrivals()
{
    // Whoever has the turn meanwhile looks again after it.
    while (hasArrivals()) {
        const std::unique_lock turn(driving, std::try_to_lock);
        if (!turn || !drive({})) return;
        if (due() < restUntil) callers->wake();
    }
}

bool TransferLoop::hasArrivals()
{
    std::lock_guard lock(mutex);
    return !arrivals.empty() && !stopped;
}

bool TransferLoop::drive(const std::vector<SocketWatch::Ready>& ready)
{
    std::optional<PipeSignalBlock> block;
    if (writesTls) block.emplace();
    if (!takeArrivals()) return false;
    if (!ready.empty() || !active.empty()) lastWork = Time::clock::now();
    endPauses();
    if (callers->answer()) attend();
    attendLimited();
    if (isDeadlineDue()) endOver();
    moveOn(ready);
    attendAll(&HttpTransfer::attendRefusal); // once a round, since each time makes the timer due
    if (isTimerDue()) moveOn({});
    endOverdue();
    return true;
}

void TransferLoop::moveOn(const std::vector<SocketWatch::Ready>& ready)
{
    int running = 0;
    for (const auto& [socket, actions] : ready)
        curl_multi_socket_action(multi.get(), socket, actions, &running);
    do {
        if (isTimerDue()) {
            timer.reset();
            curl_multi_socket_action(multi.get(), CURL_SOCKET_TIMEOUT, 0, &running);
        }
        handOver();
        collectFinished(); // which may begin others
    } while (isTimerDue());
}

bool TransferLoop::isTimerDue() const
{
    return timer && *timer <= Time::clock::now();
}

TransferLoop::Time TransferLoop::due() const
{
    const auto now = Time::clock::now();
    auto due = now + (now - lastWork > tick ? idle : tick);
    for (const auto* limit : {&limits.sending, &limits.receiving})
        if (limit->hasWaiting()) due = std::min(due, limit->due());
    if (timer) due = std::min(due, *timer);
    if (!pausing.empty()) due = std::min(due, pausing.begin()->first);
    if (!deadlines.empty()) due = std::min(due, *deadlines.begin());
    return due;
}

bool TransferLoop::takeArrivals()
{
    std::vector<Transfer> taken;
    {
        std::lock_guard lock(mutex);
        if (stopped) return false;
        taken.swap(arrivals);
    }
    for (auto& transfer : taken) {
        if (const auto deadline = transfer->deadline()) deadlines.insert(*deadline);
        enqueue(std::move(transfer));
    }
    return true;
}

void TransferLoop::enqueue(Transfer transfer)
{
    const std::string origin = transfer->origin(); // outlives the transfer
    lanes[origin].waiting.push_back(std::move(transfer));
    fillLane(origin);
}

void TransferLoop::endPauses()
{
    if (pausing.empty()) return;
    const auto now = ExchangeClock::Time::clock::now();
    while (!pausing.empty() && pausing.begin()->first <= now)
        enqueue(std::move(pausing.extract(pausing.begin()).mapped()));
}

void TransferLoop::fillLane(const std::string& origin)
{
    Lane& lane = lanes[origin];
    while (lane.active < laneLimit && !lane.waiting.empty()) {
        Transfer next = std::move(lane.waiting.front());
        lane.waiting.pop_front();
        begin(std::move(next));
    }
    if (lane.active == 0 && lane.waiting.empty()) lanes.erase(origin);
}

void TransferLoop::begin(Transfer transfer)
{
    if (transfer->isOver()) {
        transfer->giveUp();
        post(std::move(transfer));
        return;
    }
    try {
        if (options.mostRate != 0) transfer->limitTo(limits);
        CURL* handle = transfer->open(takeHandle());
        if (const auto fault = curl_multi_add_handle(multi.get(), handle); fault != CURLM_OK) {
            throw std::runtime_error(curl_multi_strerror(fault));
        }
        ++lanes[transfer->origin()].active;
        active.emplace(handle, std::move(transfer));
    } catch (const std::exception& fault) {
        transfer->fail(std::make_exception_ptr(transfer->errorOf(TransportPhase::prepare, fault.what())));
        post(std::move(transfer));
    }
}

std::unique_ptr<EasyHandle> TransferLoop::takeHandle()
{
    if (idleHandles.empty()) {
        auto made = std::make_unique<EasyHandle>(options);
        sockets.attend(*made);
        return made;
    }
    auto handle = std::move(idleHandles.back()); // the last one used: its memory is warm
    idleHandles.pop_back();
    return handle;
}

void TransferLoop::keepHandle(std::unique_ptr<EasyHandle> handle)
{
    if (handle && idleHandles.size() < laneLimit) idleHandles.push_back(std::move(handle));
}

void TransferLoop::collectFinished()
{
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi.get(), &left)) {
        if (message->msg == CURLMSG_DONE) finish(message->easy_handle, message->data.result);
    }
}

void TransferLoop::finish(CURL* handle, CURLcode outcome)
{
    auto found = active.extract(handle);
    if (found.empty()) return;
    Transfer transfer = std::move(found.mapped());
    curl_multi_remove_handle(multi.get(), handle);
    const std::string origin = transfer->origin();
    transfer->close(outcome);
    keepHandle(transfer->releaseHandle());
    postOrPause(std::move(transfer));
    if (vacated.erase(handle) == 0) --lanes[origin].active;
    fillLane(origin);
}

/// After all that has arrived in one round, so that a subscriber is called for full items rather than for each
/// piece of them.
void TransferLoop::handOver()
{
    for (const auto& [handle, transfer] : active)
        transfer->handOver();
}

void TransferLoop::attend()
{
    endOver(); // what is over is not taken up again
    attendAll(&HttpTransfer::attend);
}

void TransferLoop::attendAll(CURLcode (HttpTransfer::*step)())
{
    std::vector<std::pair<CURL*, CURLcode>> ended;
    for (const auto& [handle, transfer] : active) {
        if (const CURLcode outcome = ((*transfer).*step)(); outcome != CURLE_OK)
            ended.emplace_back(handle, outcome);
    }
    for (const auto& [handle, outcome] : ended)
        finish(handle, outcome);
}

void TransferLoop::attendLimited()
{
    const std::pair<RateLimit*, int> directions[] = {{&limits.sending, CURLPAUSE_SEND},
                                                     {&limits.receiving, CURLPAUSE_RECV}};
    for (const auto& [limit, direction] : directions) {
        if (!limit->hasWaiting()) continue;
        const auto now = ExchangeClock::Time::clock::now();
        while (CURL* const handle = limit->next(now)) {
            const auto found = active.find(handle); // it may have ended meanwhile
            if (found == active.end()) continue;
            if (const CURLcode outcome = found->second->goOn(direction); outcome != CURLE_OK)
                finish(handle, outcome);
        }
    }
}

bool TransferLoop::isDeadlineDue() const
{
    return !deadlines.empty() && *deadlines.begin() <= CallOptions::Time::clock::now();
}

void TransferLoop::endOver()
{
    dropOverWaiting(); // first, or one of them might take the place of another in vain
    dropOverPausing();
    std::vector<CURL*> ended;
    for (const auto& [handle, transfer] : active)
        if (transfer->isOver()) ended.push_back(handle);
    for (CURL* handle : ended)
        finish(handle, CURLE_ABORTED_BY_CALLBACK);
}

void TransferLoop::dropOverPausing()
{
    for (auto next = pausing.begin(); next != pausing.end();) {
        const auto here = next++;
        if (!here->second->isOver()) continue;
        auto ended = std::move(pausing.extract(here).mapped());
        ended->giveUp();
        post(std::move(ended));
    }
}

void TransferLoop::dropOverWaiting()
{
    for (auto& [origin, lane] : lanes) {
        const auto kept = std::stable_partition(lane.waiting.begin(), lane.waiting.end(),
                                                [](const Transfer& t) { return !t->isOver(); });
        std::for_each(kept, lane.waiting.end(), [this](Transfer& ended) {
            ended->giveUp();
            post(std::move(ended));
        });
        lane.waiting.erase(kept, lane.waiting.end());
    }
}

void TransferLoop::endOverdue()
{
    const auto now = ExchangeClock::Time::clock::now();
    if (now < nextCheck) return; // a busy thread comes by far more often than time matters
    nextCheck = now + tick;
    std::vector<CURL*> overdue, still;
    for (const auto& [handle, transfer] : active) {
        if (transfer->isOverdue(now))
            overdue.push_back(handle);
        else if (transfer->standsStill())
            still.push_back(handle);
    }
    for (CURL* handle : overdue)
        finish(handle, CURLE_OPERATION_TIMEDOUT);
    for (CURL* handle : still)
        vacate(handle);
}

void TransferLoop::vacate(CURL* handle)
{
    if (!vacated.insert(handle).second) return;
    const auto& origin = active.at(handle)->origin();
    --lanes[origin].active;
    fillLane(origin);
}

void TransferLoop::abandonAll()
{
    for (auto& [handle, transfer] : active) {
        curl_multi_remove_handle(multi.get(), handle);
        abandon(std::move(transfer));
    }
    active.clear();
    vacated.clear();
    for (auto& [origin, lane] : lanes) {
        for (auto& transfer : lane.waiting)
            abandon(std::move(transfer));
    }
    lanes.clear();
    for (auto& [due, transfer] : pausing)
        abandon(std::move(transfer));
    pausing.clear();
    std::vector<Transfer> taken;
    {
        std::lock_guard lock(mutex);
        taken.swap(arrivals);
    }
    for (auto& transfer : taken)
        abandon(std::move(transfer));
}

void TransferLoop::abandon(Transfer transfer)
{
    transfer->fail(std::make_exception_ptr(transfer->errorOf(TransportPhase::shutdown, errors::hostStopped)));
    HttpTransfer::settleLater(std::move(transfer), *threads);
}

void TransferLoop::postOrPause(Transfer transfer)
{
    const auto pause = transfer->pauseBeforeNextTry();
    if (!pause) {
        post(std::move(transfer));
        return;
    }
    transfer->startOver(*pause);
    pausing.emplace(ExchangeClock::Time::clock::now() + *pause, std::move(transfer));
}

void TransferLoop::post(Transfer transfer)
{
    if (const auto deadline = transfer->deadline()) deadlines.erase(deadlines.find(*deadline));
    HttpTransfer::settleLater(std::move(transfer), *threads);
}

} // namespace connector::host::detail
