#include "tarnhost/HttpClient.h"

#include "tarn/foundation/ContentReduction.h"
#include "tarn/foundation/ReducingSubscriber.h"
#include "tarnhost/DeliveryThreads.h"
#include "tarnhost/HostErrors.h"
#include "tarnhost/detail/Proxy.h"
#include "tarnhost/detail/TransferLoop.h"

#include <algorithm>
#include <limits>
#include <mutex>
#include <set>
#include <stdexcept>

namespace connector::host {
namespace {

using Reply = std::unique_ptr<Message>;
using common::DataBuffer;
using BodySubscriber = reactive_streams::ReducingSubscriber<DataBuffer, DataBuffer>;
using Transfer = std::unique_ptr<detail::HttpTransfer>;

std::exception_ptr shutdownOf(const detail::HttpTransfer& transfer)
{
    return std::make_exception_ptr(transfer.errorOf(TransportPhase::shutdown, errors::hostStopped));
}

/// Clocks and libcurl cannot count any further.
HttpOptions countable(HttpOptions options)
{
    using std::chrono::milliseconds;
    constexpr milliseconds century = std::chrono::hours(24 * 36'525);
    options.connectTimeout = std::min(options.connectTimeout, milliseconds(std::numeric_limits<int>::max()));
    for (auto* limit : {&options.replyTimeout, &options.stallWindow, &options.documentTimeout})
        *limit = std::min(*limit, century);
    return options;
}

} // namespace

/// What happens between one start and the matching stop, and the counters across all of them.
class HttpClient::Exchanges : public std::enable_shared_from_this<HttpClient::Exchanges> {
public:
    Exchanges(std::shared_ptr<DeliveryThreads> deliveryThreads, HttpOptions httpOptions)
        : threads(std::move(deliveryThreads))
        , options(std::make_shared<const HttpOptions>(countable(std::move(httpOptions))))
        , counters(std::make_shared<detail::TransferCounters>())
    {
        detail::Proxy(options->proxy); // refused now rather than with each request
    }

    void start()
    {
        std::lock_guard lock(mutex);
        if (!loop) loop = std::make_shared<detail::TransferLoop>(threads, *options);
    }

    void stop();
    Future<Reply> exchange(const http::HttpClientRequest& request);

    TransferredBytes transferred() const { return {counters->sent.load(), counters->received.load()}; }

private:
    void stream(const http::BodyPublisher& publisher, Transfer transfer);
    void gatherLater(const http::BodyPublisher& publisher, Transfer transfer);
    void gatherBody(const http::BodyPublisher& publisher, Transfer transfer);
    void bodyGathered(Future<DataBuffer> content, Transfer transfer);
    /// @return false while stopped; otherwise `stop` cancels the subscriber unless it has finished
    bool watch(const std::shared_ptr<BodySubscriber>& subscriber);
    std::shared_ptr<detail::TransferLoop> currentLoop();
    void submit(Transfer transfer);
    void failLater(Transfer transfer, std::exception_ptr error);

    const std::shared_ptr<DeliveryThreads> threads;
    const std::shared_ptr<const HttpOptions> options;
    const std::shared_ptr<detail::TransferCounters> counters;
    std::mutex mutex;                           ///< guards the two below
    std::shared_ptr<detail::TransferLoop> loop; ///< null while stopped
    std::set<std::shared_ptr<BodySubscriber>> gathering;
    const std::shared_ptr<detail::LiveStreams> live = std::make_shared<detail::LiveStreams>();
};

void HttpClient::Exchanges::stop()
{
    std::shared_ptr<detail::TransferLoop> stopping;
    std::set<std::shared_ptr<BodySubscriber>> unfinished;
    {
        std::lock_guard lock(mutex);
        stopping.swap(loop);
        unfinished.swap(gathering);
    }
    // After the lock: a cancel settles its request, and what waits for that may come back here.
    for (const auto& subscriber : unfinished)
        subscriber->cancel();
    if (!stopping) return;
    stopping->stop();
    live->failAll(std::make_exception_ptr(errors::hostStoppedError()));
}

Future<Reply> HttpClient::Exchanges::exchange(const http::HttpClientRequest& request)
{
    auto transfer = std::make_unique<detail::HttpTransfer>(request, options, counters, threads);
    auto reply = transfer->getFuture();
    if (transfer->isStreamed()) {
        stream(request.body, std::move(transfer));
    } else if (request.body) {
        gatherLater(request.body, std::move(transfer));
    } else {
        submit(std::move(transfer));
    }
    return reply;
}

void HttpClient::Exchanges::stream(const http::BodyPublisher& publisher, Transfer transfer)
{
    auto running = currentLoop();
    if (!running) {
        submit(std::move(transfer));
        return;
    }
    const auto outgoing = transfer->openStreams(threads, running->bell(), live);
    if (!outgoing && publisher) {
        gatherLater(publisher, std::move(transfer));
        return;
    }
    running->submit(std::move(transfer));
    if (outgoing) threads->post([outgoing, publisher] { outgoing->follow(publisher); });
}

/// Publishers are foreign code, which is not to run within the call of whoever sends the request.
void HttpClient::Exchanges::gatherLater(const http::BodyPublisher& publisher, Transfer transfer)
{
    threads->post([self = shared_from_this(), publisher, waiting = std::move(transfer)]() mutable {
        self->gatherBody(publisher, std::move(waiting));
    });
}

void HttpClient::Exchanges::gatherBody(const http::BodyPublisher& publisher, Transfer transfer)
{
    auto subscriber = std::make_shared<BodySubscriber>(DataBuffer(), reactive_streams::appendContent);
    transfer->keep(publisher);
    if (!watch(subscriber)) {
        auto error = shutdownOf(*transfer);
        failLater(std::move(transfer), std::move(error));
        return;
    }
    static_cast<void>(
        subscriber->getFuture().then([self = shared_from_this(), key = std::weak_ptr(subscriber),
                                      waiting = std::move(transfer)](Future<DataBuffer>&& content) mutable {
            {
                std::lock_guard lock(self->mutex);
                self->gathering.erase(key.lock());
            }
            self->bodyGathered(std::move(content), std::move(waiting));
        }));
    // Last, since a publisher may deliver everything before this returns.
    try {
        publisher->subscribe(subscriber);
    } catch (...) {
        subscriber->onError(std::current_exception());
    }
}

void HttpClient::Exchanges::bodyGathered(Future<DataBuffer> content, Transfer transfer)
{
    std::exception_ptr failure;
    try {
        transfer->setBody(content.get());
    } catch (...) {
        failure = currentLoop() ? std::current_exception() : shutdownOf(*transfer);
    }
    if (failure) {
        failLater(std::move(transfer), std::move(failure));
    } else {
        submit(std::move(transfer));
    }
}

bool HttpClient::Exchanges::watch(const std::shared_ptr<BodySubscriber>& subscriber)
{
    std::lock_guard lock(mutex);
    return loop && gathering.insert(subscriber).second;
}

std::shared_ptr<detail::TransferLoop> HttpClient::Exchanges::currentLoop()
{
    std::lock_guard lock(mutex);
    return loop;
}

void HttpClient::Exchanges::submit(Transfer transfer)
{
    if (auto running = currentLoop()) {
        running->submit(std::move(transfer));
    } else {
        auto error = shutdownOf(*transfer);
        failLater(std::move(transfer), std::move(error));
    }
}

void HttpClient::Exchanges::failLater(Transfer transfer, std::exception_ptr error)
{
    transfer->fail(std::move(error));
    detail::HttpTransfer::settleLater(std::move(transfer), *threads);
}

HttpClient::HttpClient(std::shared_ptr<DeliveryThreads> deliveryThreads, HttpOptions options)
    : exchanges(std::make_shared<Exchanges>(std::move(deliveryThreads), std::move(options)))
{
}

HttpClient::~HttpClient()
{
    exchanges->stop();
}

void HttpClient::onStart()
{
    exchanges->start();
}

void HttpClient::onStop()
{
    exchanges->stop();
}

TransferredBytes HttpClient::transferred() const
{
    return exchanges->transferred();
}

Future<Reply> HttpClient::deliver(std::unique_ptr<Message>&& message, Address&&, std::shared_ptr<Context>&&)
{
    if (!isRunning()) return makeExceptionalFuture<Reply>(std::runtime_error(errors::notRunning));
    auto* request = dynamic_cast<http::HttpClientRequest*>(message.get());
    if (!request) return makeExceptionalFuture<Reply>(std::invalid_argument(errors::notHttp));
    try {
        return exchanges->exchange(*request);
    } catch (const TransportError& refusal) {
        return makeExceptionalFuture<Reply>(refusal);
    }
}

} // namespace connector::host
