#include "tarn/transfer/detail/ReplyHead.h"

#include "tarn/transfer/ContentDigest.h"

#include <charconv>
#include <string_view>

namespace connector::tarn::detail {
namespace {

constexpr std::uint16_t statusOk = 200;

std::optional<std::uint64_t> numberIn(std::string_view text)
{
    std::uint64_t number = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (text.empty() || fault != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

} // namespace

ReplyHead::ReplyHead(const http::HttpClientResponse& reply)
    : response(reply), streamed(dynamic_cast<const http::HttpStreamedResponse*>(&reply))
{
}

std::string ReplyHead::value(const std::string& name) const
{
    if (!streamed || streamed->headers.count(name) != 1) return {};
    return streamed->headers.find(name)->second;
}

std::optional<ReplyHead::Part> ReplyHead::part() const
{
    const std::string text = value("content-range"); // "bytes 5-9/10", "bytes 5-9/*", "bytes */10"
    constexpr std::string_view unit = "bytes ";
    const auto slash = text.find('/');
    if (!text.starts_with(unit) || slash == std::string::npos) return std::nullopt;
    const auto range = std::string_view(text).substr(unit.size(), slash - unit.size());
    Part part;
    part.total = numberIn(std::string_view(text).substr(slash + 1));
    if (range == "*") return part;
    const auto dash = range.find('-');
    if (dash == std::string_view::npos) return std::nullopt;
    part.first = numberIn(range.substr(0, dash));
    const auto last = numberIn(range.substr(dash + 1));
    if (!part.first || !last || *last < *part.first) return std::nullopt;
    part.last = *last;
    return part;
}

std::optional<std::uint64_t> ReplyHead::contentLength() const
{
    return numberIn(value("content-length"));
}

std::string ReplyHead::sha256() const
{
    const std::string whole = sha256Of("repr-digest");
    return !whole.empty() || response.status != statusOk ? whole : bodySha256();
}

std::string ReplyHead::bodySha256() const
{
    return sha256Of("content-digest");
}

std::string ReplyHead::sha256Of(const std::string& name) const
{
    if (!streamed) return {};
    const auto [first, last] = streamed->headers.equal_range(name);
    for (auto header = first; header != last; ++header)
        if (auto found = sha256In(header->second); !found.empty()) return found;
    return {};
}

std::string ReplyHead::versionId() const
{
    const std::string tag = value("etag");
    return tag.size() > 2 && tag.front() == '"' && tag.back() == '"' ? tag.substr(1, tag.size() - 2)
                                                                     : std::string();
}

} // namespace connector::tarn::detail
