#include "tarnd/http/ContentReply.h"

#include "tarnd/http/ContentPart.h"
#include "tarnd/http/Sentences.h"
#include "tarnd/store/Secrets.h"
#include "tarnd/store/Sentences.h"

#include <Poco/DateTimeFormat.h>
#include <Poco/DateTimeFormatter.h>

namespace tarnd {

namespace {

std::string httpDate(std::int64_t milliseconds)
{
    constexpr std::int64_t microseconds = 1000;
    return Poco::DateTimeFormatter::format(Poco::Timestamp(milliseconds * microseconds),
                                           Poco::DateTimeFormat::HTTP_FORMAT);
}

/// Only a GET has ranges. An If-Range that does not name this very content asks for all of the present one.
std::optional<ContentPart> partAskedFor(const Request& request, const std::string& tag, std::uint64_t size)
{
    const auto ranges = request.headerValues("Range");
    const auto conditions = request.headerValues("If-Range");
    if (request.method() != "GET" || ranges.size() != 1) return {};
    if (!conditions.empty() && (conditions.size() > 1 || conditions.front() != tag)) return {};
    return partOf(ranges.front(), size);
}

/// Otherwise sendfile would wait for the rest until the connection counts as idle.
void requireSize(const ContentBytes& bytes, std::uint64_t size)
{
    if (const auto found = bytes.size(); found != size)
        throw sentences::internal.because("a content has " + std::to_string(found) + " bytes instead of " +
                                          std::to_string(size) + "; see tarnd fsck");
}

/// A content that comes from elsewhere.
class FetchedBody final : public BodySource {
public:
    explicit FetchedBody(ContentBytes bytes) : bytes(std::move(bytes)) {}

    std::size_t read(char* data, std::size_t size) override { return bytes.read(data, size); }

private:
    ContentBytes bytes;
};

void setBody(Reply& reply, ContentBytes bytes, const ContentPart& part)
{
    bytes.choose(part.first, part.size);
    if (bytes.stream) {
        reply.source = std::make_shared<FetchedBody>(std::move(bytes));
        reply.sourceSize = part.size;
        return;
    }
    reply.file = std::move(bytes.file);
    reply.fileOffset = part.first;
    reply.fileSize = part.size;
}

/// Tells what the content is, too: one who has all of it sees that it is this one.
Reply rangeRefusal(std::uint64_t size, const std::string& tag, const std::string& digest)
{
    auto reply = errorReply(sentences::rangeOutside());
    reply.headers.emplace_back("Content-Range", "bytes */" + std::to_string(size));
    reply.headers.emplace_back("ETag", tag);
    reply.headers.emplace_back("Repr-Digest", digest);
    return reply;
}

} // namespace

std::string digestField(const std::string& sha256)
{
    return "sha-256=:" + base64OfHex(sha256) + ":";
}

Reply contentReply(const Request& request, OpenContent content)
{
    const auto size = static_cast<std::uint64_t>(content.size);
    const auto tag = '"' + content.tag + '"';
    requireSize(content.bytes, size);
    const auto part = partAskedFor(request, tag, size);
    const auto digest = digestField(content.sha256);
    if (part && part->size == 0) return rangeRefusal(size, tag, digest);

    Reply reply;
    reply.contentType = "application/octet-stream";
    setBody(reply, std::move(content.bytes), part.value_or(ContentPart{0, size}));
    reply.headers = {{"Accept-Ranges", "bytes"},
                     {"ETag", tag},
                     {"Last-Modified", httpDate(content.modified)},
                     {"Repr-Digest", digest}};
    if (!part) {
        reply.headers.emplace_back("Content-Digest", digest);
        return reply;
    }
    reply.status = 206;
    reply.headers.emplace_back("Content-Range", "bytes " + std::to_string(part->first) + "-" +
                                                    std::to_string(part->first + part->size - 1) + "/" +
                                                    std::to_string(size));
    return reply;
}

} // namespace tarnd
