// How the bytes of an exchange come and go: mostly what libcurl calls, in the loop's turn.
#include "tarn/foundation/platform/HttpStreamedResponse.h"
#include "tarnhost/DeliveryThreads.h"
#include "tarnhost/HostErrors.h"
#include "tarnhost/detail/HttpTransfer.h"
#include "tarnhost/detail/ReplyCheck.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace connector::host::detail {

int HttpTransfer::onBeforeSend(void* self, char*, char*, int, int)
{
    auto& transfer = *static_cast<HttpTransfer*>(self);
    const bool repeated = std::exchange(transfer.sendBegun, true);
    if (!repeated || !transfer.isChange || transfer.isBodyUntouched()) return CURL_PREREQFUNC_OK;
    transfer.refusal = errors::notRepeated;
    return CURL_PREREQFUNC_ABORT;
}

std::size_t HttpTransfer::onUpload(char* room, std::size_t unit, std::size_t count, void* self)
{
    auto& transfer = *static_cast<HttpTransfer*>(self);
    if (!transfer.limits) return transfer.supply(room, unit * count);
    if (!transfer.mayMove(&RateLimits::sending, CURLPAUSE_SEND)) return CURL_READFUNC_PAUSE;
    auto& limit = transfer.limits->sending;
    const auto before = transfer.uploaded;
    const auto supplied = transfer.supply(room, std::min<std::uint64_t>(unit * count, limit.piece()));
    limit.take(transfer.uploaded - before);
    return supplied;
}

std::size_t HttpTransfer::supply(char* room, std::size_t size)
{
    if (outgoing) return supplyStreamed(room, size);
    const auto bytes = std::min<std::uint64_t>(size, body.size - uploaded);
    if (bytes == 0) return 0;
    std::memcpy(room, static_cast<const char*>(body.data) + uploaded, bytes);
    uploaded += bytes;
    counters->sent.fetch_add(bytes, std::memory_order_relaxed);
    return bytes;
}

bool HttpTransfer::mayMove(RateLimit RateLimits::*limit, int direction)
{
    if ((limits->*limit).admits(easy->get(), ExchangeClock::Time::clock::now())) return true;
    paused |= direction;
    limited |= direction;
    wasLimited = true;
    return false;
}

CURLcode HttpTransfer::goOn(int direction)
{
    if ((limited & direction) == 0) return CURLE_OK; // the handle serves another exchange by now
    limited &= ~direction;
    paused &= ~direction;
    return curl_easy_pause(easy->get(), paused);
}

std::size_t HttpTransfer::supplyStreamed(char* room, std::size_t size)
{
    std::size_t taken = 0;
    switch (outgoing->take(room, size, taken)) {
    case OutgoingStream::Supply::later:
        paused |= CURLPAUSE_SEND;
        return CURL_READFUNC_PAUSE;
    case OutgoingStream::Supply::failed:
        return CURL_READFUNC_ABORT;
    case OutgoingStream::Supply::bytes:
    case OutgoingStream::Supply::end:
        break;
    }
    uploaded += taken;
    counters->sent.fetch_add(taken, std::memory_order_relaxed);
    return taken;
}

/// Nothing may be thrown through libcurl. @return whether `step` came to its end
template <class Step>
bool HttpTransfer::guarded(Step step)
{
    try {
        step();
        return true;
    } catch (const std::exception& fault) {
        refusal = fault.what();
        return false;
    }
}

std::size_t HttpTransfer::onHeader(char* bytes, std::size_t unit, std::size_t count, void* self)
{
    auto& transfer = *static_cast<HttpTransfer*>(self);
    const auto taken = transfer.take(&IncomingReply::takeLine, {bytes, unit * count});
    if (!transfer.reply->hasHead() || !transfer.reply->isStreamed()) return taken;
    return transfer.guarded([&] { transfer.deliverHead(); }) ? taken : CURL_WRITEFUNC_ERROR;
}

/// Once, however many lines of a trailer follow.
void HttpTransfer::deliverHead()
{
    if (headGiven || !refusal.empty()) return;
    auto headers = reply->takeHeaders();
    const auto type = headers.find("content-type");
    auto typeText = type == headers.end() ? std::string() : type->second;
    auto response = std::make_unique<http::HttpStreamedResponse>(reply->status(), incoming->publish(),
                                                                 std::move(headers));
    headGiven = true;
    threads->post(HeadDelivery(std::move(promise), std::move(response), incoming, std::move(typeText),
                               options, target, mayHaveHappened()));
}

std::size_t HttpTransfer::onBody(char* bytes, std::size_t unit, std::size_t count, void* self)
{
    auto& transfer = *static_cast<HttpTransfer*>(self);
    const std::string_view arrived(bytes, unit * count);
    if (transfer.limits && !transfer.mayMove(&RateLimits::receiving, CURLPAUSE_RECV))
        return CURL_WRITEFUNC_PAUSE;
    bool isTaken = true;
    const bool well =
        !transfer.headGiven || transfer.guarded([&] { isTaken = transfer.takeStreamed(arrived); });
    if (!isTaken) return CURL_WRITEFUNC_PAUSE;
    if (transfer.limits) transfer.limits->receiving.take(arrived.size());
    transfer.counters->received.fetch_add(arrived.size(), std::memory_order_relaxed);
    if (!well) return CURL_WRITEFUNC_ERROR;
    return transfer.headGiven ? arrived.size() : transfer.take(&IncomingReply::takeBody, arrived);
}

bool HttpTransfer::takeStreamed(std::string_view bytes)
{
    if (!incoming->accept(bytes)) {
        paused |= CURLPAUSE_RECV;
        return false;
    }
    reply->countBody(bytes.size());
    hasNews = true;
    return true;
}

std::size_t HttpTransfer::take(void (IncomingReply::*step)(std::string_view), std::string_view bytes)
{
    return guarded([&] { ((*reply).*step)(bytes); }) ? bytes.size() : CURL_WRITEFUNC_ERROR;
}

} // namespace connector::host::detail
