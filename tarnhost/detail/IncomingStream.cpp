#include "tarnhost/detail/IncomingStream.h"

#include "tarn/foundation/DeliveryScope.h"
#include "tarnhost/DeliveryThreads.h"
#include "tarnhost/HostErrors.h"
#include "tarnhost/TransportError.h"
#include "tarnhost/detail/StreamLimits.h"

#include <curl/curl.h>

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace connector::host::detail {
namespace {

using common::DataBuffer;

/// What libcurl hands over at once; anything smaller is most likely the end of a small body.
constexpr std::size_t largestPiece = CURL_MAX_WRITE_SIZE;

/// A full queue, so that not each item has to wake a thread.
constexpr int itemsPerTurn = streamQueueBytes / streamItemBytes;

/// What the response carries. Dropped without a subscriber, it cancels: nobody will ever read the body.
class LiveBody : public reactive_streams::PublisherAPI<DataBuffer> {
public:
    explicit LiveBody(std::shared_ptr<IncomingStream> incoming) : stream(std::move(incoming)) {}

    LiveBody(const LiveBody&) = delete;
    LiveBody& operator=(const LiveBody&) = delete;

    ~LiveBody() override
    {
        if (!taken) stream->cancel();
    }

    Future<bool> completion() override { return makeReadyFuture(true); }

    void subscribe(std::shared_ptr<IncomingStream::Subscriber> receiver) override
    {
        stream->subscribe(std::move(receiver));
        taken = true;
    }

private:
    std::shared_ptr<IncomingStream> stream;
    bool taken = false;
};

void append(DataBuffer& item, std::string_view bytes)
{
    std::memcpy(static_cast<char*>(item.data) + item.size, bytes.data(), bytes.size());
    item.size += bytes.size();
}

} // namespace

/// The task. One that goes without having run, since the threads have ended, ends its stream.
struct IncomingStream::Delivery {
    explicit Delivery(std::shared_ptr<IncomingStream> of) : stream(std::move(of)) {}

    Delivery(Delivery&&) = default;
    Delivery& operator=(Delivery&&) = delete;

    ~Delivery()
    {
        if (!stream) return;
        stream->abandon(std::make_exception_ptr(errors::hostStoppedError()));
        stream->deliver();
    }

    void operator()()
    {
        const DeliveryScope scope("an item of a streamed reply");
        std::exchange(stream, nullptr)->deliver();
    }

    std::shared_ptr<IncomingStream> stream;
};

IncomingStream::IncomingStream(std::shared_ptr<DeliveryThreads> deliveryThreads,
                               std::shared_ptr<LoopBell> loopBell, std::shared_ptr<LiveStreams> liveStreams)
    : threads(std::move(deliveryThreads)), bell(std::move(loopBell)), live(std::move(liveStreams))
{
}

http::BodyPublisher IncomingStream::publish()
{
    auto body = std::make_shared<LiveBody>(shared_from_this());
    live->add(shared_from_this());
    return body;
}

IncomingStream::Turn::Turn(IncomingStream& of) : stream(of)
{
    std::lock_guard lock(stream.mutex);
    if (!std::exchange(stream.scheduled, true)) stream.turnOwner = std::this_thread::get_id();
}

IncomingStream::Turn::~Turn()
{
    {
        std::lock_guard lock(stream.mutex);
        if (stream.turnOwner != std::this_thread::get_id()) return; // a task is at it, or has taken over
        stream.turnOwner = {};
    }
    stream.deliver();
}

bool IncomingStream::accept(std::string_view bytes)
{
    std::lock_guard lock(mutex);
    if (queued >= streamQueueBytes) {
        refused = held = true;
        return false;
    }
    queued += bytes.size();
    while (!bytes.empty()) {
        DataBuffer& item = itemFor(bytes.size());
        const auto part = std::min<std::uint64_t>(item.capacity - item.size, bytes.size());
        append(item, bytes.substr(0, part));
        bytes.remove_prefix(part);
    }
    return true;
}

/// Small pieces that wait share an item, which grows by doubling; large ones are never moved. @pre locked
DataBuffer& IncomingStream::itemFor(std::size_t bytes)
{
    if (!items.empty() && items.back().size < items.back().capacity) return items.back();
    const bool isSmall = bytes < largestPiece;
    if (items.empty() || !isSmall || items.back().capacity > streamItemBytes / 2) items.emplace_back();
    items.back().reserve(isSmall ? items.back().size + bytes : streamItemBytes);
    return items.back();
}

void IncomingStream::handOver()
{
    schedule(Lock(mutex));
}

void IncomingStream::close(std::exception_ptr error)
{
    Lock lock(mutex);
    if (closed) return;
    closed = true;
    failure = std::move(error);
    schedule(std::move(lock));
}

bool IncomingStream::hasRoomAgain()
{
    std::lock_guard lock(mutex);
    // Half empty, so that the two threads do not call each other for every item.
    return refused && queued <= streamQueueBytes / 2 && std::exchange(refused, false);
}

bool IncomingStream::wasHeld()
{
    std::lock_guard lock(mutex);
    return std::exchange(held, refused);
}

bool IncomingStream::isCancelled()
{
    std::lock_guard lock(mutex);
    return cancelled;
}

void IncomingStream::subscribe(std::shared_ptr<Subscriber> receiver)
{
    Lock lock(mutex);
    if (std::exchange(subscribed, true)) throw std::invalid_argument("Only one subscription allowed.");
    lock.unlock();
    receiver->onSubscribe(weak_from_this());
    lock.lock();
    // Only now, so that a task of demand within onSubscribe cannot overtake it.
    if (!cancelled) subscriber = std::move(receiver);
    schedule(std::move(lock));
}

void IncomingStream::request(std::uint64_t n)
{
    Lock lock(mutex);
    demand = n > reactive_streams::unboundedDemand - demand ? reactive_streams::unboundedDemand : demand + n;
    schedule(std::move(lock));
}

void IncomingStream::cancel()
{
    Lock lock(mutex);
    if (std::exchange(cancelled, true)) return;
    auto released = std::move(subscriber);
    const auto dropped = std::exchange(items, {});
    queued = 0;
    lock.unlock();
    interruption.ring();
    bell->ring();
    live->remove(this);
}

void IncomingStream::abandon(std::exception_ptr error)
{
    Lock lock(mutex);
    if (cancelled) return;
    const auto dropped = std::exchange(items, {});
    queued = 0;
    closed = true;
    failure = std::move(error);
    interruption.ring();
    schedule(std::move(lock));
}

/// @pre locked
bool IncomingStream::hasSignal() const
{
    if (!subscriber || cancelled) return false;
    return items.empty() ? closed : demand > 0;
}

void IncomingStream::schedule(Lock lock)
{
    const bool isHeldUp = turnOwner != std::thread::id() && turnOwner != std::this_thread::get_id();
    if ((scheduled && !isHeldUp) || !hasSignal()) return;
    scheduled = true;
    turnOwner = {};
    lock.unlock();
    threads->post(Delivery(shared_from_this()));
}

void IncomingStream::deliver()
{
    for (int left = itemsPerTurn;; --left) {
        Lock lock(mutex);
        if (items.empty() && hasSignal()) return deliverEnd(std::move(lock));
        if (left == 0 || !hasSignal()) {
            scheduled = false;
            return schedule(std::move(lock));
        }
        deliverItem(std::move(lock));
    }
}

void IncomingStream::deliverItem(Lock lock)
{
    DataBuffer item = std::move(items.front());
    items.pop_front();
    queued -= item.size;
    if (demand != reactive_streams::unboundedDemand) --demand;
    const bool wanted = refused && queued <= streamQueueBytes / 2;
    const auto receiver = subscriber;
    lock.unlock();
    if (wanted) bell->ring();
    const Interruption::Scope interruptible(interruption);
    try {
        receiver->onNext(std::move(item));
    } catch (...) { // nobody is left to hear of it; a subscriber that throws has no use for more
        cancel();
    }
}

void IncomingStream::deliverEnd(Lock lock)
{
    cancelled = true;
    const auto receiver = std::move(subscriber);
    auto error = std::move(failure);
    lock.unlock();
    try {
        error ? receiver->onError(std::move(error)) : receiver->onComplete();
    } catch (...) { // as above, and the stream has ended anyway
    }
    live->remove(this);
}

} // namespace connector::host::detail
