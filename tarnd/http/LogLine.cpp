#include "tarnd/http/LogLine.h"

#include "tarnd/http/PlainText.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace tarnd {

std::string utcNow()
{
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME, &now);
    tm parts{};
    ::gmtime_r(&now.tv_sec, &parts);
    std::array<char, 32> text{};
    const auto size = std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    constexpr long millisecond = 1'000'000; // nanoseconds
    std::snprintf(text.data() + size, text.size() - size, ".%03ldZ", now.tv_nsec / millisecond % 1000);
    return text.data();
}

std::string loggedPath(const Route* route, std::string_view target)
{
    if (route == nullptr) return "-";
    if (route->access == Access::anybody) return std::string(route->path) + "/...";
    return plainText(target.substr(0, target.find('?')));
}

} // namespace tarnd
