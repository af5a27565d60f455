#include "tarnd/http/RequestLog.h"

#include "tarnd/http/PlainText.h"

#include <cstdio>

namespace tarnd {

namespace {

std::string lineOf(std::string_view method, std::string_view target)
{
    const auto path = target.substr(0, target.find('?'));
    constexpr std::string_view secret = "/public/";
    return plainText(method) + " " + (path.starts_with(secret) ? "/public/..." : plainText(path));
}

} // namespace

void RequestLog::failed(std::string_view method, std::string_view target, const ServiceError& error) const
{
    const auto line = lineOf(method, target);
    std::fprintf(stderr, "tarnd: %s failed: %s %s\n", line.c_str(), error.what(), error.detail().c_str());
}

void RequestLog::answered(std::string_view method, std::string_view target, unsigned status,
                          std::chrono::steady_clock::duration took) const
{
    if (!everyRequest) return;
    using namespace std::chrono;
    const auto line = lineOf(method, target);
    const auto elapsed = duration_cast<duration<double, std::milli>>(took).count();
    std::fprintf(stderr, "tarnd: %s %u %.1f ms\n", line.c_str(), status, elapsed);
}

} // namespace tarnd
