#pragma once

#include "tarn/foundation/DataBuffer.h"
#include "tarn/foundation/platform/HttpClientRequest.h"
#include "tarnhost/detail/LoopBell.h"

#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>

namespace connector::host {
class DeliveryThreads;
}

namespace connector::host::detail {

/// The body of one request on its way from its publisher to the socket.
///
/// The transfer loop takes bytes out; finding none, it leaves the socket alone until it is called again. A task on the
/// delivery threads asks the publisher for one item, whenever there is room; there is never more than one such
/// task, and it alone calls the publisher: its `request` and `cancel` come one after the other.
class OutgoingStream : public reactive_streams::SubscriberAPI<common::DataBuffer>,
                       public std::enable_shared_from_this<OutgoingStream> {
public:
    /// @param length  the sum of the items that the publisher has to bring; nothing: whatever it brings
    OutgoingStream(std::shared_ptr<DeliveryThreads> threads, std::shared_ptr<LoopBell> bell,
                   std::optional<std::uint64_t> length);

    /// Once. What the publisher throws becomes the failure of the stream.
    void follow(http::BodyPublisher publisher);

    // For the publisher, on any thread.

    void onSubscribe(std::weak_ptr<reactive_streams::Subscription> offered) override;
    void onNext(common::DataBuffer&& item) override;
    void onComplete() override;
    void onError(std::exception_ptr error) override;
    /// Fails the stream, unless it has ended.
    void cancel() override;

    Future<bool> completion() override { return makeReadyFuture(true); }

    /// On any thread, when the exchange is over: asks for nothing more and lets the publisher go.
    void release();

    // For the loop, in its turn.

    /// What `take` has come to.
    enum class Supply { bytes, later, end, failed };

    /// Copies up to `size` bytes to `room`. @param[out] taken  how many
    Supply take(char* room, std::size_t size, std::size_t& taken);
    /// Whether `take` has said "later" and would not say so now.
    bool hasMoreAgain();
    /// Whether bytes were missing since the last call, so that the service waits for the publisher.
    bool wasHeld();
    /// Whether `take` has given out the last byte.
    bool isAllTaken();
    /// What the publisher, or its length, failed with; null while all is well.
    std::exception_ptr error();

    const std::optional<std::uint64_t> length;

private:
    using Lock = std::unique_lock<std::mutex>;

    bool wantsItem() const;
    bool hasDone() const;
    bool takeTurn();
    void schedule(Lock lock);
    void step();
    void callPublisher();
    void fail(Lock lock, std::exception_ptr error);
    void callLoop(Lock lock);

    const std::shared_ptr<DeliveryThreads> threads;
    const std::shared_ptr<LoopBell> bell;

    std::mutex mutex; ///< guards everything below; the publisher is called without it
    http::BodyPublisher source;
    std::weak_ptr<reactive_streams::Subscription> subscription;
    std::deque<common::DataBuffer> items;
    std::uint64_t queued = 0; ///< bytes that `items` take, those of the first that are taken already included
    std::uint64_t takenOfItem = 0; ///< bytes
    std::uint64_t arrived = 0;     ///< bytes, of all items
    std::exception_ptr failure;
    bool subscribing = false; ///< the publisher is inside `subscribe`
    bool subscribed = false;
    bool asked = false;     ///< one item is due
    bool scheduled = false; ///< a task is posted or running
    bool ended = false;     ///< by the publisher
    bool stopped = false;   ///< from this side
    bool starved = false;   ///< `take` waits for bytes
    bool held = false;
};

} // namespace connector::host::detail
