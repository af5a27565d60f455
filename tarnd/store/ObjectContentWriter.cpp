#include "tarnd/store/ObjectContentWriter.h"

#include "tarnd/store/ObjectContents.h"
#include "tarnd/store/Sentences.h"

#include <algorithm>
#include <utility>

namespace tarnd {

namespace {

/// Gathered in memory, and so repeated when the store is busy.
constexpr std::uint64_t smallContent = 256 * 1024;

constexpr std::uint64_t mostParts = 10'000; // what the protocol takes

std::uint64_t partSizeFor(std::optional<std::uint64_t> expected, const ObjectStoreAddress& address)
{
    return std::max(address.partSize, expected.value_or(0) / mostParts + 1);
}

} // namespace

ObjectContentWriter::ObjectContentWriter(ObjectContents& contents, const std::string& id,
                                         std::optional<std::uint64_t> size)
    : ContentWriter(id)
    , contents(contents)
    , store(contents.store())
    , expected(size)
    , partSize(partSizeFor(size, store.address()))
    , gathers(!size || *size <= smallContent)
{
}

ObjectContentWriter::~ObjectContentWriter()
{
    discard();
}

/// Grows, so that what has no end known beforehand may have half a terabyte.
std::uint64_t ObjectContentWriter::gatheredPart() const
{
    constexpr std::uint64_t first = 8 << 20;
    constexpr std::size_t partsOfOneSize = 2000;
    return std::min(partSize, first) << (tags.size() / partsOfOneSize);
}

void ObjectContentWriter::append(const void* data, std::size_t size)
{
    const auto* bytes = static_cast<const char*>(data);
    if (!gathers) return pass(bytes, size);
    gathered.append(bytes, size);
    if (expected || gathered.size() < gatheredPart()) return;
    begin(gathered.size());
    pass(gathered.data(), gathered.size());
    gathered.clear();
}

void ObjectContentWriter::pass(const char* data, std::size_t size)
{
    while (size > 0) {
        if (!request) begin(std::min(partSize, expected.value_or(0) - passed));
        const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(size, leftOfRequest));
        request->send(data, piece);
        data += piece;
        size -= piece;
        passed += piece;
        leftOfRequest -= piece;
        if (leftOfRequest == 0) finishRequest();
    }
}

void ObjectContentWriter::begin(std::uint64_t bytes)
{
    sent = true;
    if (isInParts() && uploadId.empty()) uploadId = store.beginParts(id());
    request = isInParts() ? store.putPart(id(), uploadId, tags.size() + 1, bytes) : store.put(id(), bytes);
    leftOfRequest = bytes;
}

void ObjectContentWriter::finishRequest()
{
    constexpr long ok = 200;
    if (request->status() != ok) throw request->refusal();
    tags.push_back(request->header("etag"));
    request->rest();
    request.reset();
}

/// Whoever has the reply has a durable object: the store syncs before it answers.
void ObjectContentWriter::makeDurable()
{
    contents.notify(WriteStep::bytesWritten);
    const Stopwatch watch(contents.syncs());
    if (gathers && uploadId.empty()) {
        sent = true;
        store.putText(id(), gathered, sha256());
    } else if (!gathered.empty()) {
        begin(gathered.size());
        pass(gathered.data(), gathered.size());
    }
    if (!uploadId.empty()) store.completeParts(id(), uploadId, tags);
    contents.notify(WriteStep::bytesDurable);
    contents.notify(WriteStep::contentNamed);
    contents.notify(WriteStep::folderDurable);
}

/// Half of the grace is for the clocks and for what is left of this transaction.
void ObjectContentWriter::requireThere()
{
    const auto took = std::chrono::steady_clock::now() - started;
    if (took < store.address().grace / 2 || contents.has(id())) return;
    throw sentences::objectsGone.because("content " + id() + " took too long, and was taken for left behind");
}

void ObjectContentWriter::keep() noexcept
{
    settled = true;
}

/// In the background, because a store that is away would hold up whoever waits for the refusal.
void ObjectContentWriter::discard() noexcept
{
    if (std::exchange(settled, true) || !sent) return;
    request.reset();
    try {
        std::vector<std::string> names{id()};
        if (!uploadId.empty()) names.push_back(id() + "?" + uploadId);
        contents.drop(names);
    } catch (const std::exception&) { // what stays is found by the sweep
    }
}

void ObjectContentWriter::abandon() noexcept
{
    settled = true;
}

} // namespace tarnd
