#include "cli/machine/Memory.h"

#include "cli/terminal/Failure.h"
#include "cli/terminal/Quantities.h"

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

/// Under `ulimit -v` allocations fail however much memory the machine has.
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
    // Available rather than free: most of what is not free is cache, which gives way.
    return std::min(readKilobytes("/proc/meminfo", "MemAvailable"), leftOfAddressSpace());
}

void requireMemory(const std::string& what, std::uint64_t bytes)
{
    const auto available = availableMemory();
    if (bytes <= available) return;
    throw Failure(ExitCode::failure, what + " does not fit into memory: it has " + humanSize(bytes) +
                                         ", and " + humanSize(available) + " is free.");
}

} // namespace tarncli
