#include "tarnd/http/RequestLog.h"

#include "tarnd/http/LogLine.h"
#include "tarnd/http/PercentEncoding.h"
#include "tarnd/http/PlainText.h"

#include <array>
#include <cstdio>
#include <nlohmann/json.hpp>

namespace tarnd {

namespace {

double milliseconds(std::chrono::steady_clock::duration took)
{
    return static_cast<double>(std::chrono::duration_cast<std::chrono::microseconds>(took).count()) / 1000;
}

/// One word per field, so that a line can be taken apart at its blanks.
std::string textOf(const LoggedRequest& request)
{
    std::array<char, 96> numbers{};
    std::snprintf(numbers.data(), numbers.size(), " %u %ju %ju %.3fms%s", request.status,
                  std::uintmax_t{request.received}, std::uintmax_t{request.sent}, milliseconds(request.took),
                  request.complete ? "" : " cut");
    const auto user = request.user.empty() ? "-" : percentEncode(request.user);
    return utcNow() + " " + request.id + " " + user + " " + plainText(request.method) + " " +
           loggedPath(request.route, request.target) + numbers.data();
}

std::string jsonOf(const LoggedRequest& request)
{
    const nlohmann::ordered_json line = {
        {"time", utcNow()},
        {"request", request.id},
        {"user", request.user},
        {"method", plainText(request.method)},
        {"route", request.route ? request.route->path : "-"},
        {"path", loggedPath(request.route, request.target)},
        {"status", request.status},
        {"received", request.received},
        {"sent", request.sent},
        {"milliseconds", milliseconds(request.took)},
        {"complete", request.complete},
    };
    return line.dump();
}

} // namespace

void RequestLog::failed(const LoggedRequest& request, const ServiceError& error)
{
    const auto path = loggedPath(request.route, request.target);
    if (format == LogFormat::json) {
        const nlohmann::ordered_json line = {
            {"time", utcNow()}, {"request", request.id}, {"method", plainText(request.method)},
            {"path", path},     {"error", error.what()}, {"detail", error.detail()},
        };
        file.write(line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
        return;
    }
    const auto id = isOn() ? " (" + request.id + ")" : "";
    file.write("tarnd: " + plainText(request.method) + " " + path + id + " failed: " + error.what() + " " +
               error.detail());
}

void RequestLog::ended(const LoggedRequest& request)
{
    if (format == LogFormat::text) file.write(textOf(request));
    if (format == LogFormat::json) file.write(jsonOf(request));
}

} // namespace tarnd
