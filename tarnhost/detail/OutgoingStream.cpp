#include "tarnhost/detail/OutgoingStream.h"

#include "tarn/foundation/DeliveryScope.h"
#include "tarnhost/DeliveryThreads.h"
#include "tarnhost/HostErrors.h"
#include "tarnhost/detail/StreamLimits.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>
#include <utility>

namespace connector::host::detail {
namespace {

using common::DataBuffer;

/// What an item takes while it waits: also the room that it does not use, its entry and what the heap adds.
std::uint64_t costOf(const DataBuffer& item)
{
    return item.capacity + 64;
}

std::exception_ptr wrongLength(const char* relation, std::uint64_t arrived, std::uint64_t length)
{
    return std::make_exception_ptr(std::runtime_error("The content to send " + std::string(relation) +
                                                      " after " + std::to_string(arrived) + " of " +
                                                      std::to_string(length) + " bytes."));
}

} // namespace

OutgoingStream::OutgoingStream(std::shared_ptr<DeliveryThreads> deliveryThreads,
                               std::shared_ptr<LoopBell> loopBell, std::optional<std::uint64_t> total)
    : length(total), threads(std::move(deliveryThreads)), bell(std::move(loopBell))
{
}

void OutgoingStream::follow(http::BodyPublisher publisher)
{
    {
        std::lock_guard lock(mutex);
        source = publisher;
        subscribing = true;
    }
    std::exception_ptr failure;
    try {
        publisher->subscribe(shared_from_this());
    } catch (...) {
        failure = std::current_exception();
    }
    Lock lock(mutex);
    subscribing = false;
    const bool isMyTurn = !failure && takeTurn();
    lock.unlock();
    if (failure) onError(failure);
    if (isMyTurn) step();
}

void OutgoingStream::onSubscribe(std::weak_ptr<reactive_streams::Subscription> offered)
{
    Lock lock(mutex);
    subscription = std::move(offered);
    subscribed = true;
    schedule(std::move(lock));
}

void OutgoingStream::onNext(DataBuffer&& item)
{
    Lock lock(mutex);
    asked = false;
    if (ended || stopped) return;
    arrived += item.size;
    if (length && arrived > *length) {
        fail(std::move(lock), wrongLength("goes on", *length, *length));
        return;
    }
    if (item.size > 0) {
        queued += costOf(item);
        items.push_back(std::move(item));
    }
    callLoop(std::move(lock));
}

void OutgoingStream::onComplete()
{
    Lock lock(mutex);
    if (ended || stopped) return;
    if (length && arrived < *length) {
        fail(std::move(lock), wrongLength("ended", arrived, *length));
        return;
    }
    ended = true;
    callLoop(std::move(lock));
}

void OutgoingStream::onError(std::exception_ptr error)
{
    Lock lock(mutex);
    if (ended || stopped) return;
    ended = true;
    if (!error) error = std::make_exception_ptr(std::runtime_error(errors::noReason)); // null: all is well
    fail(std::move(lock), std::move(error));
}

void OutgoingStream::cancel()
{
    Lock lock(mutex);
    if (ended || stopped) return;
    fail(std::move(lock), std::make_exception_ptr(std::runtime_error("Content stream cancelled.")));
}

void OutgoingStream::release()
{
    Lock lock(mutex);
    stopped = true;
    const auto dropped = std::exchange(items, {});
    schedule(std::move(lock));
}

OutgoingStream::Supply OutgoingStream::take(char* room, std::size_t size, std::size_t& taken)
{
    Lock lock(mutex);
    taken = 0;
    if (failure) return Supply::failed;
    while (taken < size && !items.empty()) {
        DataBuffer& item = items.front();
        const auto part = std::min<std::uint64_t>(size - taken, item.size - takenOfItem);
        std::memcpy(room + taken, static_cast<const char*>(item.data) + takenOfItem, part);
        taken += part;
        takenOfItem += part;
        if (takenOfItem < item.size) break;
        queued -= costOf(item);
        takenOfItem = 0;
        items.pop_front();
    }
    if (taken == 0 && ended) return Supply::end;
    if (taken == 0) starved = held = true;
    schedule(std::move(lock));
    return taken > 0 ? Supply::bytes : Supply::later;
}

bool OutgoingStream::hasMoreAgain()
{
    std::lock_guard lock(mutex);
    return starved && (!items.empty() || ended || failure) && std::exchange(starved, false);
}

bool OutgoingStream::wasHeld()
{
    std::lock_guard lock(mutex);
    return std::exchange(held, starved);
}

bool OutgoingStream::isAllTaken()
{
    std::lock_guard lock(mutex);
    // Of a known length the service has all with the last byte, whenever the publisher says that it has ended.
    return items.empty() && (length ? arrived == *length : ended && !failure);
}

std::exception_ptr OutgoingStream::error()
{
    std::lock_guard lock(mutex);
    return failure;
}

/// @pre locked
bool OutgoingStream::wantsItem() const
{
    return subscribed && !ended && !stopped && !asked && queued < streamQueueBytes;
}

/// The publisher has no more to do, and is to go. @pre locked
bool OutgoingStream::hasDone() const
{
    return (ended || stopped) && source;
}

/// @pre locked @return whether there is something to do that nobody does
bool OutgoingStream::takeTurn()
{
    // A publisher without a lock takes one call at a time: what is wanted meanwhile is asked for when it has returned.
    if (subscribing || scheduled || !(wantsItem() || hasDone())) return false;
    scheduled = true;
    return true;
}

void OutgoingStream::schedule(Lock lock)
{
    if (!takeTurn()) return;
    lock.unlock();
    threads->post([self = shared_from_this()] {
        const DeliveryScope scope("asking for an item of a streamed request");
        self->step();
    });
}

/// One item at a time, so that many streams share one thread evenly; what is left after the last takes no turn.
void OutgoingStream::step()
{
    callPublisher();
    Lock lock(mutex);
    if (hasDone()) {
        lock.unlock();
        callPublisher();
        lock.lock();
    }
    scheduled = false;
    schedule(std::move(lock));
}

void OutgoingStream::callPublisher()
{
    Lock lock(mutex);
    const bool last = hasDone();
    const bool first = wantsItem();
    asked = asked || first;
    // Both released here, without the lock: within its own signal a publisher could not wait for its thread.
    const auto publisher = last ? std::exchange(source, nullptr) : source;
    const auto asking = subscription.lock();
    const bool stop = last && !ended;
    lock.unlock();
    try {
        if (asking && stop) asking->cancel();
        if (asking && first) asking->request(1);
        if (!asking && first) throw std::runtime_error("Subscription went away!");
    } catch (...) {
        onError(std::current_exception());
    }
}

void OutgoingStream::fail(Lock lock, std::exception_ptr error)
{
    failure = std::move(error);
    if (!ended) stopped = true;
    callLoop(std::move(lock));
}

/// After anything that `take` may wait for.
void OutgoingStream::callLoop(Lock lock)
{
    const bool wanted = starved || failure;
    schedule(std::move(lock));
    if (wanted) bell->ring();
}

} // namespace connector::host::detail
