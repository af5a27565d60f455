#include "tarnhost/detail/AvailableMemory.h"

#include <fstream>
#include <limits>
#include <string>

namespace connector::host::detail {

std::uint64_t availableMemory()
{
    constexpr std::string_view key = "MemAvailable:";
    std::ifstream lines("/proc/meminfo");
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(key)) return std::stoull(line.substr(key.size())) * 1024;
    return std::numeric_limits<std::uint64_t>::max();
}

} // namespace connector::host::detail
