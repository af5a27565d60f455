#include "cli/terminal/Quantities.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <ctime>

namespace tarncli {

std::string humanSize(std::uint64_t bytes)
{
    constexpr std::array units{"KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    if (bytes < 1024) return std::to_string(bytes) + " B";
    auto value = static_cast<double>(bytes) / 1024;
    std::size_t unit = 0;
    // 1023.5 would be printed as 1024, which is 1.0 of the next unit.
    for (; value >= 1023.5 && unit + 1 < units.size(); ++unit)
        value /= 1024;
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, value < 9.95 ? "%.1f %s" : "%.0f %s", value, units[unit]);
    return buffer;
}

namespace {

/// A number and the letters behind it; nothing when there is none, or it is too long.
std::optional<std::pair<std::uint64_t, std::string_view>> parseNumber(std::string_view text)
{
    constexpr std::size_t longest = 12; // the largest unit still fits behind it
    const auto digits = std::min(text.find_first_not_of("0123456789"), text.size());
    if (digits == 0 || digits > longest) return {};
    return std::pair{std::stoull(std::string(text.substr(0, digits))), text.substr(digits)};
}

} // namespace

std::optional<std::uint64_t> parseSize(std::string_view text)
{
    const auto number = parseNumber(text);
    if (!number) return {};
    auto [value, unit] = *number;
    if (unit.empty()) return value;
    constexpr std::string_view units = "KMGT";
    const auto power = units.find(static_cast<char>(std::toupper(static_cast<unsigned char>(unit.front()))));
    unit.remove_prefix(1);
    if (power == std::string_view::npos || !(unit.empty() || unit == "B" || unit == "iB")) return {};
    if (value >> (63 - 10 * (power + 1)) != 0) return {};
    return value << (10 * (power + 1));
}

std::optional<std::uint64_t> parseAge(std::string_view text)
{
    const auto number = parseNumber(text);
    if (!number) return {};
    const auto [value, unit] = *number;
    constexpr std::pair<std::string_view, std::uint64_t> units[] = {
        {"", 86'400}, {"s", 1}, {"m", 60}, {"h", 3'600}, {"d", 86'400}, {"w", 604'800}};
    for (const auto& [name, seconds] : units)
        if (unit == name) return value * seconds % (std::uint64_t{1} << 53) * 1000;
    return {};
}

std::string humanTime(std::uint64_t milliseconds)
{
    const auto seconds = static_cast<std::time_t>(milliseconds / 1000);
    std::tm local{};
    char buffer[64] = "?";
    if (localtime_r(&seconds, &local) != nullptr) std::strftime(buffer, sizeof buffer, "%F %R", &local);
    return buffer;
}

std::string humanDuration(std::chrono::seconds duration)
{
    const long long total = duration.count();
    char buffer[48];
    if (total < 3600)
        std::snprintf(buffer, sizeof buffer, "%lld:%02lld", total / 60, total % 60);
    else
        std::snprintf(buffer, sizeof buffer, "%lld:%02lld:%02lld", total / 3600, total / 60 % 60, total % 60);
    return buffer;
}

std::string counted(std::uint64_t number, const std::string& noun)
{
    return std::to_string(number) + " " + noun + (number == 1 ? "" : "s");
}

const char* wasOrWere(std::uint64_t number)
{
    return number == 1 ? "was" : "were";
}

} // namespace tarncli
