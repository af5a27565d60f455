#include "tarnd/http/ContentPart.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <strings.h>

namespace tarnd {

namespace {

/// A position too large for any file is beyond the end of this one as well.
std::optional<std::uint64_t> position(std::string_view digits)
{
    std::uint64_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error == std::errc::invalid_argument || end != digits.data() + digits.size()) return {};
    return error == std::errc() ? value : std::numeric_limits<std::uint64_t>::max();
}

std::optional<ContentPart> lastBytes(std::uint64_t count, std::uint64_t size)
{
    // The last bytes of nothing are there, and no part can tell so.
    if (size == 0 && count > 0) return {};
    return ContentPart{size - std::min(count, size), std::min(count, size)};
}

} // namespace

std::optional<ContentPart> partOf(std::string_view range, std::uint64_t size)
{
    constexpr std::string_view unit = "bytes=";
    const auto dash = range.find('-');
    if (dash == std::string_view::npos || strncasecmp(range.data(), unit.data(), unit.size()) != 0) return {};
    if (dash < unit.size()) return {};
    const auto from = range.substr(unit.size(), dash - unit.size());
    const auto to = range.substr(dash + 1);
    const auto first = position(from);
    const auto last = position(to);
    if ((!first && !from.empty()) || (!last && !to.empty()) || (first && last && *last < *first)) return {};
    if (!first) return last ? lastBytes(*last, size) : std::nullopt;
    if (*first >= size) return ContentPart{};
    return ContentPart{*first, std::min(last.value_or(size), size - 1) - *first + 1};
}

} // namespace tarnd
