#include "tarnhost/detail/IncomingReply.h"

#include "tarnhost/detail/AvailableMemory.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <stdexcept>
#include <string>

namespace connector::host::detail {
namespace {

/// Of all heads and the trailer together. libcurl bounds one line, not their number.
constexpr std::uint64_t headLimit = 256 * 1024;
/// What may be announced without a look at the memory there is.
constexpr std::uint64_t harmless = std::uint64_t{64} << 20;

constexpr std::uint16_t firstFinalStatus = 200;
constexpr std::uint16_t noContent = 204;
constexpr std::uint16_t notModified = 304;

[[noreturn]] void refuse(const std::string& reason)
{
    throw std::runtime_error(reason);
}

/// Of ASCII, whatever the locale: headers are of no language.
constexpr char lower(char c)
{
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool sameWord(std::string_view a, std::string_view b)
{
    return std::ranges::equal(a, b, {}, lower, lower);
}

std::string lowered(std::string_view word)
{
    std::string letters(word);
    std::ranges::transform(letters, letters.begin(), lower);
    return letters;
}

constexpr bool isBlank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

/// Not by find_first_not_of, which would look for every character in a set: there are many headers in a reply.
std::string_view trimmed(std::string_view text)
{
    while (!text.empty() && isBlank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back()))
        text.remove_suffix(1);
    return text;
}

/// The whole of `text` as a decimal number; nothing: it is none.
template <class Number>
std::optional<Number> numberIn(std::string_view text)
{
    Number number{};
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (fault != std::errc() || end != text.data() + text.size()) return {};
    return number;
}

} // namespace

IncomingReply::IncomingReply(Wish wished, const HttpOptions& httpOptions) : wish(wished), options(httpOptions)
{
}

void IncomingReply::takeLine(std::string_view line)
{
    headBytes += line.size();
    if (headBytes > headLimit) refuse("The head of the reply is larger than 256 KiB.");
    if (stage == Stage::body) return; // a trailer says nothing that is asked for
    if (stage == Stage::awaited) {
        beginHead(line);
    } else if (std::ranges::all_of(line, isBlank)) {
        endHead();
    } else {
        takeHeader(line);
    }
}

void IncomingReply::beginHead(std::string_view statusLine)
{
    stage = Stage::head;
    headers.clear(); // what an interim reply has told
    framings = 0;
    fault = nullptr;
    announced = 0;
    chunked = false;
    const auto space = statusLine.find(' ');
    if (space == std::string_view::npos) refuse("The reply has no status.");
    const auto code = numberIn<std::uint16_t>(statusLine.substr(space + 1, 3));
    if (!code) refuse("The reply has no status.");
    statusCode = *code;
}

void IncomingReply::takeHeader(std::string_view line)
{
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) return;
    const auto name = line.substr(0, colon);
    const auto value = trimmed(line.substr(colon + 1));
    if (wish.streamed) headers.emplace(lowered(name), value);
    if (sameWord(name, "content-length")) {
        ++framings;
        if (const auto length = numberIn<std::uint64_t>(value))
            announced = *length;
        else
            fault = "The reply announces no valid length.";
    } else if (sameWord(name, "transfer-encoding")) {
        ++framings;
        chunked = true;
        if (!sameWord(value, "chunked")) fault = "The reply has a transfer encoding that is not known.";
    }
}

void IncomingReply::endHead()
{
    if (statusCode <
        firstFinalStatus) { // an interim reply, such as 100: the one that counts is still to come
        stage = Stage::awaited;
        return;
    }
    stage = Stage::body;
    if (fault) refuse(fault);
    if (statusCode == noContent || statusCode == notModified) return;
    if (framings == 0)
        refuse("The reply does not say where it ends, so that nobody can tell it is complete.");
    if (framings > 1) refuse("The reply says more than once where it ends.");
    if (!chunked && !isStreamed()) announce();
}

/// Makes room for a body of known length in one step. The kernel grants memory that it does not have, so that
/// asking it for room is not enough.
void IncomingReply::announce()
{
    if (announced > limit()) refuse("The reply is larger than " + std::to_string(limit()) + " bytes.");
    if (announced > harmless && announced > availableMemory()) {
        refuse("There is not enough memory for a reply of " + std::to_string(announced) + " bytes.");
    }
    if (announced > 0) body.reserve(announced);
}

std::uint64_t IncomingReply::limit() const
{
    if (isDocument()) return options.documentLimit;
    return chunked ? options.chunkedContentLimit : options.contentLimit;
}

void IncomingReply::takeBody(std::string_view bytes)
{
    if (bytes.size() > limit() - body.size)
        refuse("The reply is larger than " + std::to_string(limit()) + " bytes.");
    body.reserve(body.size + bytes.size());
    std::memcpy(static_cast<char*>(body.data) + body.size, bytes.data(), bytes.size());
    body.size += bytes.size();
}

common::DataBuffer IncomingReply::takeContent()
{
    if (body.size == 0) {
        body = common::DataBuffer();
    } else if (void* fitted = std::realloc(body.data, body.size)) {
        body.data = fitted;
        body.capacity = body.size;
    }
    return std::move(body);
}

} // namespace connector::host::detail
