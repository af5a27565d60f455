#include "cli/machine/Memory.h"

#include <algorithm>
#include <fstream>
#include <limits>
#include <string>
#include <sys/resource.h>

namespace tarncli {

namespace {

constexpr auto unlimited = std::numeric_limits<std::uint64_t>::max();

/// The number of kB behind `key` in a file of /proc, as bytes.
std::uint64_t readKilobytes(const char* file, const std::string& key)
{
    std::ifstream lines(file);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(key + ":")) return std::stoull(line.substr(key.size() + 1)) * 1024;
    return unlimited;
}

std::uint64_t leftOfAddressSpace()
{
    rlimit limit{};
    if (getrlimit(RLIMIT_AS, &limit) != 0 || limit.rlim_cur == RLIM_INFINITY) return unlimited;
    const auto used = readKilobytes("/proc/self/status", "VmSize");
    return limit.rlim_cur > used ? limit.rlim_cur - used : 0;
}

} // namespace

std::uint64_t availableMemory()
{
    return std::min(readKilobytes("/proc/meminfo", "MemAvailable"), leftOfAddressSpace());
}

} // namespace tarncli
