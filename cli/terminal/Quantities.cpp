#include "cli/terminal/Quantities.h"

#include <array>
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

} // namespace tarncli
