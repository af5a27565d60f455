#pragma once

#include "tarn/foundation/CallOptions.h"
#include "tarn/foundation/Promise.h"
#include "tarn/foundation/platform/HttpClientRequest.h"
#include "tarnhost/HttpOptions.h"
#include "tarnhost/TransportError.h"
#include "tarnhost/detail/EasyHandle.h"
#include "tarnhost/detail/ExchangeClock.h"
#include "tarnhost/detail/ExchangeReport.h"
#include "tarnhost/detail/IncomingReply.h"
#include "tarnhost/detail/IncomingStream.h"
#include "tarnhost/detail/OutgoingStream.h"
#include "tarnhost/detail/RateLimit.h"
#include "tarnhost/detail/RequestCheck.h"
#include "tarnhost/detail/UrlParts.h"

#include <curl/curl.h>

#include <atomic>
#include <chrono>
#include <exception>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

namespace connector::host::detail {

/// Body bytes of all transfers; written in the loop's turn, read by anyone.
struct TransferCounters {
    std::atomic<std::uint64_t> sent{0};
    std::atomic<std::uint64_t> received{0};
};

/// One HTTP exchange, from the request to the promise of its reply.
///
/// Handed from thread to thread, never used by two at once: prepared and given its body on the requesting
/// side, `open` to `close` in the loop's turn, `settle` on a delivery thread. A transfer that dies unsettled,
/// since the delivery threads have ended, is settled with what it has come to. Where the reply is streamed, the
/// promise is kept when the head has arrived, and what becomes of the exchange is what becomes of the stream.
class HttpTransfer {
public:
    /// @throws TransportError, phase prepare, when the request cannot be sent as it is
    HttpTransfer(const http::HttpClientRequest& request, std::shared_ptr<const HttpOptions> options,
                 std::shared_ptr<TransferCounters> counters, const std::shared_ptr<DeliveryThreads>& threads);
    ~HttpTransfer();
    HttpTransfer(const HttpTransfer&) = delete;
    HttpTransfer& operator=(const HttpTransfer&) = delete;

    Future<std::unique_ptr<Message>> getFuture() { return promise.getFuture(); }

    /// Holds the publisher of the body until this transfer is settled: a publisher that went inside its own
    /// signal could not wait for its thread.
    void keep(http::BodyPublisher source) { bodySource = std::move(source); }

    void setBody(common::DataBuffer content) { body = std::move(content); }

    /// Whether the body, the reply or both are to be moved as they arrive.
    bool isStreamed() const { return framing.streamed || streamsReply; }

    /// When the call is over, whatever has become of it.
    std::optional<CallOptions::Time> deadline() const { return call ? call->deadline : std::nullopt; }

    /// Rings when the caller asks the exchange to stop.
    void listen(const std::shared_ptr<LoopBell>& bell);

    /// Makes the streams. @return the one that has to follow the publisher of the body; null without a body
    std::shared_ptr<OutgoingStream> openStreams(const std::shared_ptr<DeliveryThreads>& threads,
                                                const std::shared_ptr<LoopBell>& bell,
                                                const std::shared_ptr<LiveStreams>& live);

    const std::string& origin() const { return target.origin; }

    /// Keeps to limits that outlive the exchange.
    void limitTo(RateLimits& shared) { limits = &shared; }

    /// Sets `handle` up for this exchange, which keeps it until `releaseHandle`. @throws std::runtime_error
    CURL* open(std::unique_ptr<EasyHandle> handle);

    /// Whether the exchange has taken too long; `close` then says in what. @pre open
    bool isOverdue(ExchangeClock::Time now);

    /// Whether the exchange waits for its publisher or its subscriber, and has not moved since this was last asked.
    /// @pre open
    bool standsStill();

    /// Gives the subscriber of a streamed reply what has arrived since. @pre open
    void handOver();

    /// Takes up what stood still on this side and does no longer. Anything but CURLE_OK is an outcome for
    /// `close`. @pre open
    CURLcode attend();

    /// Lets a reply that refuses the body end the exchange though its publisher is silent: libcurl ends none that
    /// pauses, and does not tell when the reply is whole. Outcome and @pre as `attend`
    CURLcode attendRefusal();

    /// Takes up what has waited for its turn under a limit, in the direction of this CURLPAUSE_ bit. Outcome and @pre as
    /// `attend`
    CURLcode goOn(int direction);

    /// Whether the caller has given the exchange up, or its deadline has passed; `giveUp` or `close` then says so.
    bool isOver();

    /// Makes that the outcome. @pre isOver, and as `close`
    void giveUp();

    /// Takes the outcome over. @pre the handle is in no multi handle any more
    void close(CURLcode outcome);

    /// The handle, for another exchange; null after a failure, of which it may keep something. @pre closed
    std::unique_ptr<EasyHandle> releaseHandle();

    /// Makes `error` the outcome and gives the handle, if any, up. @pre as `close`
    void fail(std::exception_ptr error);

    /// An error of this exchange.
    TransportError errorOf(TransportPhase phase, std::string reason) const;

    /// How long to wait before the exchange is tried again; nothing: the outcome stands. @pre closed
    std::optional<std::chrono::milliseconds> pauseBeforeNextTry() const;

    /// Makes it what it was before `open`, with one try less. @pre `soon` is pauseBeforeNextTry
    void startOver(std::chrono::milliseconds soon);

    /// Resolves the future with the outcome; without one, with that of a host that was shut down. Runs its
    /// continuation.
    void settle();

    /// Has it settled on a delivery thread, after all that is told of it before; at once where nobody is to be told.
    static void settleLater(std::unique_ptr<HttpTransfer> transfer, DeliveryThreads& threads);

private:
    void setRequest();
    void setBodySource();

    bool isBodyUntouched() const;
    bool mayHaveHappened() const;
    std::uint64_t bytesOut() const;
    bool isSent() const;
    bool isRefused() const;
    bool isLeftToItsStream() const;
    void endStream();
    std::string reasonOf(CURLcode outcome) const;
    std::string doing() const;
    TransferProgress progress() const;
    std::string failureText() const;
    std::size_t take(void (IncomingReply::*step)(std::string_view), std::string_view bytes);
    template <class Step>
    bool guarded(Step step);
    CURLcode pauseOnly(int directions);
    bool mayMove(RateLimit RateLimits::*limit, int direction);
    std::size_t supply(char* room, std::size_t size);
    bool takeStreamed(std::string_view bytes);
    std::size_t supplyStreamed(char* room, std::size_t size);
    void deliverHead();

    static std::size_t onHeader(char* bytes, std::size_t unit, std::size_t count, void* self);
    static std::size_t onBody(char* bytes, std::size_t unit, std::size_t count, void* self);
    static std::size_t onUpload(char* room, std::size_t unit, std::size_t count, void* self);
    static int onBeforeSend(void* self, char* peerIp, char* localIp, int peerPort, int localPort);

    const std::shared_ptr<const HttpOptions> options;
    const std::shared_ptr<TransferCounters> counters;
    const std::string url;
    const UrlParts target;
    const std::string method;
    const bool isChange; ///< may be sent once only
    const BodyFraming framing;
    const bool streamsReply;
    const std::stop_token stop; ///< of a streamed request
    const SharedCallOptions call;
    const RetryPolicy& retries;
    const IncomingReply::Wish wish;
    const HeaderList headerList;
    const std::unique_ptr<ExchangeReport> report; ///< null: nobody wants to hear
    http::BodyPublisher bodySource;
    common::DataBuffer body;
    std::uint64_t uploaded = 0;

    struct Ring {
        void operator()() const { bell->ring(); }

        std::shared_ptr<LoopBell> bell;
    };

    std::shared_ptr<DeliveryThreads> threads; ///< those of the streams; null without
    std::shared_ptr<OutgoingStream> outgoing; ///< null: the body is in `body`
    std::shared_ptr<IncomingStream> incoming; ///< null: the reply is gathered
    std::optional<std::stop_callback<Ring>> onStop, onCallStop;
    RateLimits* limits = nullptr;             ///< null: none
    int paused = 0;                           ///< CURLPAUSE_ bits
    int limited = 0;                          ///< those of them that wait for their turn
    bool wasLimited = false;                  ///< since `isOverdue` has asked
    std::optional<std::uint64_t> movedBefore; ///< bytes, when `standsStill` was last asked
    bool hasNews = false;                     ///< `handOver` has something to do
    bool headGiven = false;                   ///< the promise is kept, or will be by a task

    std::unique_ptr<EasyHandle> easy;
    bool sendBegun = false;
    std::string refusal;                ///< why the exchange was broken off from this side
    std::optional<TransportPhase> over; ///< deadline or stopped

    unsigned triesLeft;
    std::chrono::milliseconds pause;                ///< before the next try, but for chance
    bool interrupted = false;                       ///< the outcome is one that another try may change
    std::optional<std::chrono::seconds> turnedAway; ///< for how long the service wants to be left alone
    std::string lastFault;                          ///< of the tries before; empty: this is the first

    std::optional<ExchangeClock> clock; ///< always there; made anew for each try, as the reply is
    std::optional<IncomingReply> reply;
    std::string contentType;
    std::exception_ptr failure;
    bool complete = false;
    bool settled = false;
    Promise<std::unique_ptr<Message>> promise;
};

} // namespace connector::host::detail
