#include "tarnhost/detail/HttpTransfer.h"

#include "tarn/foundation/DeliveryScope.h"
#include "tarn/foundation/OneShotPublisher.h"
#include "tarn/foundation/platform/HttpStreamedRequest.h"
#include "tarn/foundation/platform/HttpStreamedResponse.h"
#include "tarnhost/DeliveryThreads.h"
#include "tarnhost/HostErrors.h"
#include "tarnhost/detail/Proxy.h"
#include "tarnhost/detail/ReplyCheck.h"
#include "tarnhost/detail/StreamLimits.h"

#include <algorithm>
#include <utility>

#include <strings.h>

namespace connector::host::detail {
namespace {

// Made and given back for each exchange, for which the heap puts larger ones in order first.
constexpr long replyBufferBytes = 32 * 1024;
constexpr long bodyBufferBytes = 64 * 1024;
constexpr std::uint16_t firstRefusal = 300;
constexpr std::uint16_t statusTooMany = 429;
/// More than anybody waits for, and few enough to calculate with.
constexpr curl_off_t secondsOfAYear = 365 * 24 * 3600;

using Reply = std::unique_ptr<Message>;

const http::HttpStreamedRequest* streamedOf(const http::HttpClientRequest& request)
{
    return dynamic_cast<const http::HttpStreamedRequest*>(&request);
}

bool asksForPart(const http::HttpClientRequest& request)
{
    return std::any_of(request.headers.begin(), request.headers.end(),
                       [](const auto& header) { return strcasecmp(header.first.c_str(), "range") == 0; });
}

IncomingReply::Wish wishOf(const http::HttpClientRequest& request)
{
    const bool streamed = streamedOf(request) != nullptr;
    return {request.replyBody, streamed, streamed && asksForPart(request)};
}

} // namespace

HttpTransfer::HttpTransfer(const http::HttpClientRequest& request,
                           std::shared_ptr<const HttpOptions> httpOptions,
                           std::shared_ptr<TransferCounters> byteCounters,
                           const std::shared_ptr<DeliveryThreads>& pool)
    : options(std::move(httpOptions))
    , counters(std::move(byteCounters))
    , url(request.url)
    , target(checkedTarget(request))
    , method(checkedMethod(request, target))
    , isChange(request.atMostOnce || method != "GET")
    , framing(checkedFraming(request, target))
    , streamsReply(streamedOf(request) != nullptr)
    , stop(streamsReply ? streamedOf(request)->stop : std::stop_token())
    , call(request.options)
    , retries(call && call->retries ? *call->retries : options->retries)
    , wish(wishOf(request))
    , headerList(checkedHeaders(request, target))
    , report(ExchangeReport::of(target, url, method, call, options, pool))
    , triesLeft(retries.most)
    , pause(retries.firstPause)
    , clock(*options)
    , reply(std::in_place, wish, *options)
{
}

std::shared_ptr<OutgoingStream> HttpTransfer::openStreams(const std::shared_ptr<DeliveryThreads>& pool,
                                                          const std::shared_ptr<LoopBell>& bell,
                                                          const std::shared_ptr<LiveStreams>& live)
{
    threads = pool;
    if (framing.streamed) outgoing = std::make_shared<OutgoingStream>(pool, bell, framing.length);
    if (streamsReply) incoming = std::make_shared<IncomingStream>(pool, bell, live);
    return outgoing;
}

void HttpTransfer::listen(const std::shared_ptr<LoopBell>& bell)
{
    if (stop.stop_possible()) onStop.emplace(stop, Ring{bell});
    if (call && call->stop.stop_possible()) onCallStop.emplace(call->stop, Ring{bell});
}

HttpTransfer::~HttpTransfer()
{
    if (settled) return;
    try {
        settle();
    } catch (...) { // without memory for an outcome the promise still says that it was destroyed
    }
}

CURL* HttpTransfer::open(std::unique_ptr<EasyHandle> handle)
{
    easy = std::move(handle);
    if (report) report->beginTry();
    setRequest();
    setBodySource();
    return easy->get();
}

void HttpTransfer::setRequest()
{
    // libcurl takes a URL apart and puts it together again character by character, of which a plain one has no need.
    const bool split = target.isPlain && options->proxy.empty();
    easy->set(CURLOPT_URL, split ? target.origin.c_str() : url.c_str());
    easy->set(CURLOPT_REQUEST_TARGET, split ? url.c_str() + url.find('/', url.find("://") + 3) : nullptr);
    easy->set(CURLOPT_HTTPHEADER, headerList.get());
    const long buffer = incoming ? streamBufferBytes : replyBufferBytes;
    easy->set(CURLOPT_BUFFERSIZE,
              limits ? std::min(buffer, static_cast<long>(limits->receiving.piece())) : buffer);
    easy->set(CURLOPT_HEADERFUNCTION, &HttpTransfer::onHeader);
    easy->set(CURLOPT_HEADERDATA, this);
    easy->set(CURLOPT_WRITEFUNCTION, &HttpTransfer::onBody);
    easy->set(CURLOPT_WRITEDATA, this);
}

/// libcurl repeats a request whose kept-alive connection turns out dead. A body without a way to rewind keeps
/// changes out of that, and where there is none, the check before sending does.
void HttpTransfer::setBodySource()
{
    const bool hasBody = outgoing || body.size > 0 || method == "PUT";
    easy->set(CURLOPT_UPLOAD, hasBody ? 1L : 0L); // said each time, since the handle has served others
    if (hasBody) {
        // Of a body whose length nobody knows, libcurl says so and sends it in chunks.
        const auto length = !outgoing ? body.size : outgoing->length.value_or(static_cast<std::uint64_t>(-1));
        easy->set(CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(length));
        easy->set(CURLOPT_UPLOAD_BUFFERSIZE, outgoing ? streamBufferBytes : bodyBufferBytes);
        easy->set(CURLOPT_READFUNCTION, &HttpTransfer::onUpload);
        easy->set(CURLOPT_READDATA, this);
    }
    easy->set(CURLOPT_CUSTOMREQUEST, method.c_str());
    easy->set(CURLOPT_PREREQFUNCTION, &HttpTransfer::onBeforeSend);
    easy->set(CURLOPT_PREREQDATA, this);
}

std::unique_ptr<EasyHandle> HttpTransfer::releaseHandle()
{
    return std::move(easy);
}

void HttpTransfer::handOver()
{
    if (std::exchange(hasNews, false)) incoming->handOver();
    if (report) report->progressed(progress());
}

CURLcode HttpTransfer::attend()
{
    int standing = paused;
    if (incoming && incoming->hasRoomAgain()) standing &= ~CURLPAUSE_RECV;
    if (outgoing && outgoing->hasMoreAgain()) standing &= ~CURLPAUSE_SEND;
    return pauseOnly(standing);
}

CURLcode HttpTransfer::attendRefusal()
{
    const bool waitsForPublisher = (paused & ~limited & CURLPAUSE_SEND) != 0;
    return waitsForPublisher && isRefused() ? pauseOnly(paused & ~CURLPAUSE_SEND) : CURLE_OK;
}

CURLcode HttpTransfer::pauseOnly(int directions)
{
    if (directions == paused) return CURLE_OK;
    paused = directions; // before the call, which may come back with more to pause for
    return curl_easy_pause(easy->get(), directions);
}

bool HttpTransfer::isOver()
{
    if (stop.stop_requested() || (call && call->stop.stop_requested()) ||
        (headGiven && incoming->isCancelled()) || (outgoing && outgoing->error())) {
        over = TransportPhase::stopped;
    } else if (call && call->deadline && CallOptions::Time::clock::now() >= *call->deadline) {
        over = TransportPhase::deadline;
    }
    return over.has_value();
}

void HttpTransfer::giveUp()
{
    close(CURLE_ABORTED_BY_CALLBACK);
}

/// The stream tells how it has ended, and nothing here is anybody else's.
bool HttpTransfer::isLeftToItsStream() const
{
    return headGiven && !outgoing && !report && !call;
}

/// On the wire, while `uploaded` runs ahead by what libcurl holds.
std::uint64_t HttpTransfer::bytesOut() const
{
    curl_off_t sent = 0;
    curl_easy_getinfo(easy->get(), CURLINFO_SIZE_UPLOAD_T, &sent);
    return static_cast<std::uint64_t>(sent);
}

bool HttpTransfer::isSent() const
{
    return outgoing ? outgoing->isAllTaken() && bytesOut() >= uploaded : bytesOut() >= body.size;
}

bool HttpTransfer::isRefused() const
{
    return reply->hasHead() && reply->status() >= firstRefusal;
}

bool HttpTransfer::isOverdue(ExchangeClock::Time now)
{
    if (!sendBegun) return false; // until then libcurl watches the time
    const bool slowPublisher = outgoing && outgoing->wasHeld() && !isRefused();
    const bool slowSubscriber = incoming && incoming->wasHeld();
    const bool waitedTurn = std::exchange(wasLimited, limited != 0);
    refusal = clock->overdue(now, {isSent(), reply->hasBegun(), reply->isDocument(), bytesOut(),
                                   reply->arrived(), slowPublisher || slowSubscriber || waitedTurn});
    return !refusal.empty();
}

bool HttpTransfer::standsStill()
{
    const auto moved = uploaded + reply->arrived();
    return std::exchange(movedBefore, moved) == moved && (paused & ~limited) != 0;
}

void HttpTransfer::close(CURLcode outcome)
{
    if (report && easy) report->measure(easy->get());
    if (auto error = outgoing && outcome != CURLE_OK ? outgoing->error() : nullptr) {
        fail(std::move(error));
        return;
    }
    if (outcome != CURLE_OK) {
        const auto error =
            over ? errorOf(*over, doing()) : errorOf(phaseOf(outcome, sendBegun), reasonOf(outcome));
        interrupted =
            refusal.empty() && error.isInterruption(); // what this side has refused would end so again
        if (interrupted) lastFault = error.reason();
        fail(std::make_exception_ptr(error));
        return;
    }
    if (!reply->hasHead()) { // libcurl takes a head that the connection's end has cut off for a whole one
        interrupted = true;
        lastFault = "The connection was closed in the head of the reply.";
        fail(std::make_exception_ptr(errorOf(TransportPhase::exchange, lastFault)));
        return;
    }
    complete = true;
    if (!report) endStream();
    const bool wasTooMuch = reply->status() == statusTooMany;
    if (wasTooMuch || (!isChange && isGatewayStatus(reply->status()))) {
        curl_off_t wanted = 0; // stays 0 without the header
        curl_easy_getinfo(easy->get(), CURLINFO_RETRY_AFTER, &wanted);
        turnedAway = std::chrono::seconds(std::clamp<curl_off_t>(wanted, 0, secondsOfAYear));
        lastFault = wasTooMuch ? "The service was asked too much."
                               : "The reply was status " + std::to_string(reply->status()) + ".";
    }
    const char* type = nullptr;
    curl_easy_getinfo(easy->get(), CURLINFO_CONTENT_TYPE, &type);
    contentType = type ? type : "";
}

void HttpTransfer::fail(std::exception_ptr error)
{
    easy.reset();
    failure = std::move(error);
    if (!report) endStream();
}

/// Where there is a report, after it: nobody is told of an exchange whose end he has seen.
void HttpTransfer::endStream()
{
    if (!headGiven) return;
    // What is over ends at once, also where nobody asks for what has arrived.
    over ? incoming->abandon(failure) : incoming->close(failure);
}

/// None of it has left: no service can have carried out what needs it.
bool HttpTransfer::isBodyUntouched() const
{
    return uploaded == 0 && (outgoing ? !outgoing->isAllTaken() : body.size > 0);
}

bool HttpTransfer::mayHaveHappened() const
{
    // No service can carry out a request of whose body it has only a part.
    return isChange && sendBegun && (!outgoing || outgoing->isAllTaken());
}

TransportError HttpTransfer::errorOf(TransportPhase phase, std::string reason) const
{
    if (phase == TransportPhase::connect && !options->proxy.empty())
        reason += " (through the proxy " + Proxy(options->proxy).peer + ")";
    return {phase, target.printable(), target.peer(), std::move(reason), mayHaveHappened()};
}

std::string HttpTransfer::reasonOf(CURLcode outcome) const
{
    if (!refusal.empty()) return refusal;
    if (outcome == CURLE_SEND_FAIL_REWIND) return errors::notRepeated;
    return easy->reasonOf(outcome);
}

/// What the deadline or the stop has interrupted.
std::string HttpTransfer::doing() const
{
    if (!easy)
        return lastFault.empty() ? "waiting for a connection" : "waiting to try again (" + lastFault + ")";
    if (!sendBegun) return "connecting";
    if (reply->hasBegun()) return "receiving the reply";
    return isSent() ? "waiting for the reply" : "sending the request";
}

std::optional<std::chrono::milliseconds> HttpTransfer::pauseBeforeNextTry() const
{
    // What libcurl has taken of a stream is lost; what still waits in it goes with the next try.
    const bool isBodyLost = outgoing && uploaded > 0;
    if (isBodyLost || headGiven || triesLeft == 0) return {};
    if (turnedAway && *turnedAway <= retries.longestPause) return *turnedAway + RetryPolicy::scattered(pause);
    if (!interrupted || (isChange && sendBegun)) return {};
    return RetryPolicy::scattered(pause);
}

void HttpTransfer::startOver(std::chrono::milliseconds soon)
{
    if (report) report->endTry(reply->status(), progress(), failureText(), soon);
    --triesLeft;
    pause = retries.following(pause);
    interrupted = complete = false;
    turnedAway.reset();
    failure = nullptr;
    refusal.clear();
    sendBegun = false;
    uploaded = 0;
    paused = 0;
    limited = 0;
    movedBefore.reset();
    clock.emplace(*options);
    reply.emplace(wish, *options);
}

TransferProgress HttpTransfer::progress() const
{
    return {uploaded, reply->bodyBytes(), outgoing ? outgoing->length : body.size, reply->bodyLength()};
}

/// For observers.
std::string HttpTransfer::failureText() const
{
    if (!failure) return {};
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "An unknown error occurred.";
    }
}

void HttpTransfer::settleLater(std::unique_ptr<HttpTransfer> transfer, DeliveryThreads& threads)
{
    if (transfer->isLeftToItsStream()) return transfer->settle();
    const auto report = transfer->report.get();
    auto settling = [finished = std::move(transfer)] { finished->settle(); };
    report ? report->order().post(std::move(settling)) : threads.post(std::move(settling));
}

void HttpTransfer::settle()
{
    settled = true;
    const DeliveryScope scope("the reply to ", &target.path);
    onStop.reset();
    onCallStop.reset();
    if (outgoing) outgoing->release();
    const auto moved = report ? progress() : TransferProgress();
    if (headGiven) {
        if (!report) return;
        report->finish(reply->status(), moved, failureText(), failure && mayHaveHappened());
        incoming->deliverAfter([this] { endStream(); });
        return;
    }
    body = common::DataBuffer(); // here, since giving much memory back would hold up the loop
    if (!complete && !failure)
        failure = std::make_exception_ptr(errorOf(TransportPhase::shutdown, errors::hostStopped));
    auto content = reply->takeContent();
    if (!failure)
        failure = faultOf({reply->status(), contentType, !reply->isDocument(), content.bytes()}, *options,
                          target, mayHaveHappened());
    if (report) report->finish(reply->status(), moved, failureText(), failure && mayHaveHappened());
    if (failure) {
        promise.setException(std::exchange(failure, nullptr));
        return;
    }
    auto whole = std::make_shared<reactive_streams::OneShotPublisher<common::DataBuffer>>(std::move(content));
    if (streamsReply) {
        promise.setValue(std::make_unique<http::HttpStreamedResponse>(reply->status(), std::move(whole),
                                                                      reply->takeHeaders()));
    } else {
        promise.setValue(std::make_unique<http::HttpClientResponse>(reply->status(), std::move(whole)));
    }
}

} // namespace connector::host::detail
