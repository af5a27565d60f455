#include "tarnd/store/Size.h"

#include <charconv>
#include <limits>
#include <strings.h>

namespace tarnd {

namespace {

constexpr std::string_view units = "KMGTP";

bool isUnit(std::string_view text, char letter)
{
    const auto name = std::string(1, letter) + "iB";
    return strcasecmp(std::string(text).c_str(), name.c_str()) == 0 ||
           strcasecmp(std::string(text).c_str(), name.substr(0, 1).c_str()) == 0;
}

} // namespace

std::optional<std::uint64_t> parseSize(std::string_view text)
{
    constexpr std::uint64_t most = std::numeric_limits<std::int64_t>::max();
    std::uint64_t size = 0;
    const auto* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data(), end, size);
    if (error != std::errc() || size > most) return {};
    std::string_view unit(stopped, static_cast<std::size_t>(end - stopped));
    if (unit.starts_with(' ')) unit.remove_prefix(1);
    if (unit.empty()) return stopped == end ? std::optional(size) : std::nullopt;
    for (const char letter : units) {
        if (size > most / 1024) return {};
        size *= 1024;
        if (isUnit(unit, letter)) return size;
    }
    return {};
}

std::string sizeText(std::uint64_t bytes)
{
    std::size_t unit = 0;
    while (unit < units.size() && bytes >= 1024 && bytes % 1024 == 0) {
        bytes /= 1024;
        ++unit;
    }
    return std::to_string(bytes) + (unit == 0 ? " bytes" : std::string(" ") + units[unit - 1] + "iB");
}

} // namespace tarnd
