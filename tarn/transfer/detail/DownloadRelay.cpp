#include "tarn/transfer/detail/DownloadRelay.h"

#include "tarn/transfer/DigestMismatch.h"
#include "tarn/transfer/PartMismatch.h"
#include "tarn/transfer/detail/ReplyHead.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace connector::tarn::detail {
namespace {

using common::DataBuffer;

constexpr auto otherPart = "The service sent another part of the file than was asked for.";
constexpr std::uint16_t partialContent = 206;
constexpr std::uint16_t rangeNotSatisfiable = 416;

/// What `step` throws. Handed on outside the handler, so that whoever hears of it may wait as he likes, and is the last
/// to hold it.
template <class Step>
std::exception_ptr failureOf(Step step)
{
    try {
        step();
        return nullptr;
    } catch (...) {
        return std::current_exception();
    }
}

std::runtime_error wrongLength(const char* relation, std::uint64_t seen, std::uint64_t expected)
{
    return std::runtime_error("The content " + std::string(relation) + " after " + std::to_string(seen) +
                              " of " + std::to_string(expected) + " bytes.");
}

} // namespace

DownloadRelay::DownloadRelay(std::unique_ptr<FileDownload> request, ExchangeName name)
    : asked(std::move(request))
    , exchange(std::move(name))
    , response(std::make_unique<FileDownloadResponse>())
    , receiver(std::move(asked->content))
{
}

void DownloadRelay::begin(Future<std::unique_ptr<http::HttpClientResponse>> reply) noexcept
{
    auto failure = failureOf([&] {
        const auto arrived = reply.get();
        readHead(arrived);
        if (asked->onHead) asked->onHead(*response);
        const auto content = arrived->body;
        if (!content || (response->isPart && expected == 0u)) {
            receiver->onSubscribe(weak_from_this());
            onComplete();
            return;
        }
        {
            std::lock_guard lock(mutex);
            body = content;
        }
        content->subscribe(shared_from_this());
    });
    if (failure && end()) promise.setException(std::move(failure));
}

/// @throws what checkResponse throws, when this is not a success
void DownloadRelay::readHead(const std::unique_ptr<http::HttpClientResponse>& reply)
{
    const bool isPart = asked->offset > 0 || asked->length;
    if (isPart && reply && reply->status == partialContent) {
        readPart(*reply);
    } else if (isPart && reply && endsAtOffset(*reply)) {
        response->isPart = true;
        response->offset = asked->offset;
        response->totalSize = asked->offset;
        expected = 0;
    } else {
        exchange.readChecked(reply, [this](const auto& whole) { readWhole(whole); });
    }
    const ReplyHead head(*reply);
    response->sha256 = head.sha256();
    response->versionId = head.versionId();
    const bool endsFile = !asked->length || (expected && response->totalSize == asked->offset + *expected);
    const bool isRest = response->isPart && endsFile && asked->hash && !response->sha256.empty();
    told = isRest || !response->isPart       ? response->sha256
           : reply->status == partialContent ? head.bodySha256()
                                             : std::string();
    chooseHash(isRest);
}

/// The caller's, unless what is compared is not what he gets.
void DownloadRelay::chooseHash(bool isRest)
{
    const bool isAll = !response->isPart && response->offset == 0;
    if (isAll && asked->hash) *asked->hash = Sha256();
    if (told.empty()) return;
    hash = asked->hash && (isRest || (isAll && !remaining)) ? asked->hash : std::make_shared<Sha256>();
}

/// @throws PartMismatch when this is not the whole of what was asked for
void DownloadRelay::readPart(const http::HttpClientResponse& reply)
{
    response->isPart = true;
    response->offset = asked->offset;
    const ReplyHead head(reply);
    if (!head.isKnown()) { // the service was asked for this part, and no more can be known
        remaining = asked->length;
        return;
    }
    const auto part = head.part();
    if (!part || part->first != asked->offset || !endsAsAsked(*part)) {
        throw PartMismatch(otherPart);
    }
    if (const auto version = head.versionId();
        !asked->ifVersion.empty() && !version.empty() && version != asked->ifVersion) {
        throw PartMismatch("The service sent a part of another version than was asked for.");
    }
    response->totalSize = part->total;
    expected = part->last - asked->offset + 1;
    if (head.contentLength().value_or(*expected) != *expected) throw PartMismatch(otherPart);
}

/// With the last byte that was asked for or, before that, of the file: a service may send less, which is not all.
bool DownloadRelay::endsAsAsked(const ReplyHead::Part& part) const
{
    if (part.total && part.last >= *part.total) return false;
    const bool endsFile = part.total && part.last == *part.total - 1;
    if (!asked->length) return endsFile || !part.total;
    const auto last = part.last - asked->offset; // counted from the first byte asked for
    return last == *asked->length - 1 || (endsFile && last < *asked->length);
}

bool DownloadRelay::endsAtOffset(const http::HttpClientResponse& reply) const
{
    if (reply.status != rangeNotSatisfiable) return false;
    const auto part = ReplyHead(reply).part();
    return part && !part->first && part->total == asked->offset;
}

/// The service has sent everything. Where the caller holds the beginning of another version, that is what is needed;
/// otherwise what was asked for is cut out here.
void DownloadRelay::readWhole(const http::HttpClientResponse& reply)
{
    const ReplyHead head(reply);
    response->totalSize = expected = head.contentLength();
    if (!asked->ifVersion.empty()) return;
    if (expected && asked->offset > *expected) {
        throw PartMismatch("The file ends before the part that was asked for.");
    }
    response->offset = skip = asked->offset;
    remaining = asked->length;
}

void DownloadRelay::onSubscribe(std::weak_ptr<reactive_streams::Subscription> subscription)
{
    {
        std::lock_guard lock(mutex);
        source = std::move(subscription);
    }
    receiver->onSubscribe(weak_from_this());
}

void DownloadRelay::request(std::uint64_t n)
{
    std::unique_lock lock(mutex);
    const auto held = ended ? nullptr : source.lock();
    lock.unlock();
    if (held) held->request(n);
}

void DownloadRelay::cancel()
{
    if (!end()) return;
    stopSource();
    promise.setException(std::make_exception_ptr(std::runtime_error("Content stream cancelled.")));
}

void DownloadRelay::onNext(DataBuffer&& item)
{
    {
        std::lock_guard lock(mutex);
        if (ended) return;
    }
    // As much as the head has promised; more is nothing that was asked for.
    const auto awaited = expected ? *expected - seen : item.size;
    const bool goesOn = item.size > awaited;
    item.size = std::min(item.size, awaited);
    if (item.size > 0 || !goesOn) take(std::move(item));
    if (!goesOn || !end()) return;
    stopSource();
    fail(std::make_exception_ptr(wrongLength("goes on", seen, *expected)));
}

void DownloadRelay::take(DataBuffer&& item)
{
    if (hash && hash != asked->hash) hash->add(item.bytes());
    seen += item.size;
    const bool wasEmpty = item.size == 0;
    cut(item);
    if (item.size == 0 && !wasEmpty) {
        request(1); // in the place of the one that the subscriber does not get
        return;
    }
    pass(std::move(item));
}

/// Drops what was not asked for.
void DownloadRelay::cut(DataBuffer& item)
{
    const auto before = std::min(skip, item.size);
    if (before > 0) {
        skip -= before;
        item.size -= before;
        std::memmove(item.data, static_cast<const char*>(item.data) + before, item.size);
    }
    if (remaining) {
        item.size = std::min(item.size, *remaining);
        *remaining -= item.size;
    }
}

void DownloadRelay::pass(DataBuffer&& item)
{
    response->bytes += item.size;
    if (asked->hash) asked->hash->add(item.bytes());
    if (auto failure = failureOf([&] { receiver->onNext(std::move(item)); })) {
        if (!end()) return;
        stopSource();
        promise.setException(std::move(failure));
        return;
    }
    if (remaining == 0u && expected != seen && end()) { // the rest is not needed
        stopSource();
        complete();
    }
}

void DownloadRelay::onComplete()
{
    if (!end()) return;
    auto failure = failureOf([this] { verify(); });
    failure ? fail(std::move(failure)) : complete();
}

/// @pre the body has come to its end
void DownloadRelay::verify()
{
    if (expected && seen != *expected) throw wrongLength("ended", seen, *expected);
    if (skip > 0) throw PartMismatch("The file ends before the part that was asked for.");
    if (!response->isPart) response->totalSize = seen;
    if (!hash) return;
    compare(*hash);
    if (asked->hash && hash != asked->hash && !response->isPart) { // he holds more than came, or less
        if (asked->hash->bytes() != seen) return;
        compare(*asked->hash);
    }
    response->verified = told == response->sha256;
}

void DownloadRelay::compare(const Sha256& arrived) const
{
    const std::string found = arrived.hex();
    if (found == told) return;
    throw DigestMismatch(
        "What has arrived is not what the service says it has: its SHA-256 is " + found + ", not " + told +
        ". Fetch it again. If it stays so, the service's copy is damaged, as `tarnd fsck` tells "
        "there: remove the file and store it again.");
}

void DownloadRelay::complete()
{
    auto failure = failureOf([this] { receiver->onComplete(); });
    failure ? promise.setException(std::move(failure)) : promise.setValue(std::move(response));
}

void DownloadRelay::onError(std::exception_ptr error)
{
    if (end()) fail(std::move(error));
}

/// The subscriber first: whoever waits for the future finds it told. What it fails with itself is what is to be mended
/// before anybody goes on from there. @pre ended here
void DownloadRelay::fail(std::exception_ptr error)
{
    auto own = failureOf([&] { receiver->onError(error); });
    promise.setException(own ? std::move(own) : std::move(error));
}

bool DownloadRelay::end()
{
    http::BodyPublisher released; // after the lock, since with it may go what calls back
    std::lock_guard lock(mutex);
    released.swap(body);
    return !std::exchange(ended, true);
}

void DownloadRelay::stopSource()
{
    std::unique_lock lock(mutex);
    const auto held = source.lock();
    lock.unlock();
    if (held) held->cancel();
}

} // namespace connector::tarn::detail
