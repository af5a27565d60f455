#pragma once

#include "tarn/foundation/DataBuffer.h"
#include "tarn/foundation/platform/HttpClientRequest.h"
#include "tarnhost/detail/Interruption.h"
#include "tarnhost/detail/LiveStreams.h"
#include "tarnhost/detail/LoopBell.h"

#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <string_view>
#include <thread>

namespace connector::host {
class DeliveryThreads;
}

namespace connector::host::detail {

/// The body of one reply on its way from the socket to its subscriber.
///
/// The transfer loop puts bytes in until the queue is full, and then leaves the socket alone until it is called again.
/// A task on the delivery threads takes the items out and gives them to the subscriber; there is never more than one
/// task of a stream, which keeps the items in order, and each brings no more than a full queue, so that many streams
/// share one thread evenly; the end comes with the last item or with the report of the exchange, and the first item with
/// the head. So a short body needs no change of threads of its own. The subscriber is called without the lock.
class IncomingStream : public reactive_streams::Subscription,
                       public std::enable_shared_from_this<IncomingStream> {
public:
    using Subscriber = reactive_streams::SubscriberAPI<common::DataBuffer>;

    IncomingStream(std::shared_ptr<DeliveryThreads> threads, std::shared_ptr<LoopBell> bell,
                   std::shared_ptr<LiveStreams> live);

    /// The publisher for the response, once. The stream lives until it has ended, as `live` sees to.
    http::BodyPublisher publish();

    /// For a delivery thread that hands out the head or the end: where no task is under way it is the stream's task,
    /// which brings what there is when `call` has returned. An item that another thread waits for meanwhile is brought
    /// by a task of its own.
    template <class Call>
    void deliverAfter(Call call)
    {
        const Turn turn(*this);
        call();
    }

    // For the loop, in its turn.

    /// Takes `bytes`. @return false when there is no room; the bell rings once there is
    bool accept(std::string_view bytes);
    /// Lets the subscriber have what has been accepted since.
    void handOver();
    /// No more bytes come; null: that was all of them.
    void close(std::exception_ptr failure);
    /// Whether `accept` has refused bytes and would take them now.
    bool hasRoomAgain();
    /// Whether bytes have been refused since the last call, so that the service waits for the subscriber.
    bool wasHeld();
    bool isCancelled();

    // For the subscriber, on any thread.

    /// @throws std::invalid_argument "Only one subscription allowed." on a second call
    void subscribe(std::shared_ptr<Subscriber> receiver);
    void request(std::uint64_t n) override;
    void cancel() override;

    /// Drops what waits and ends the stream with `error`.
    void abandon(std::exception_ptr error);

private:
    using Lock = std::unique_lock<std::mutex>;
    struct Delivery;

    /// That of the calling thread, if no other has it.
    struct Turn {
        explicit Turn(IncomingStream& of);
        Turn(const Turn&) = delete;
        Turn& operator=(const Turn&) = delete;
        ~Turn();

        IncomingStream& stream;
    };

    common::DataBuffer& itemFor(std::size_t bytes);
    bool hasSignal() const;
    void schedule(Lock lock);
    void deliver();
    void deliverItem(Lock lock);
    void deliverEnd(Lock lock);
    void drop();

    const std::shared_ptr<DeliveryThreads> threads;
    const std::shared_ptr<LoopBell> bell;
    const std::shared_ptr<LiveStreams> live;
    Interruption interruption; ///< of a subscriber that waits within its signal

    std::mutex mutex; ///< guards everything below
    std::deque<common::DataBuffer> items;
    std::uint64_t queued = 0; ///< bytes in `items`
    std::uint64_t demand = 0;
    std::shared_ptr<Subscriber> subscriber;
    std::exception_ptr failure;
    bool subscribed = false;
    bool scheduled = false;    ///< a task is posted or running
    std::thread::id turnOwner; ///< the thread whose task delivers only after what it calls first
    bool closed = false;
    bool cancelled = false; ///< or ended: nothing more is signalled
    bool refused = false;   ///< `accept` waits for room
    bool held = false;
};

} // namespace connector::host::detail
