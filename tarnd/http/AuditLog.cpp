#include "tarnd/http/AuditLog.h"

#include "tarnd/http/LogLine.h"

#include <nlohmann/json.hpp>

namespace tarnd {

namespace {

/// Parameters that say to what, to whom or how something was done.
constexpr std::string_view tellingParameters[] = {
    "path",   "bucket", "subject", "targetPath", "targetBucket", "forceRecursive", "moveTargetOverwrite",
    "expires"};

/// As people know it; as it came where it cannot be decoded, which then is why the request was refused.
std::string readable(std::string_view tail)
{
    try {
        return pathOf(tail).text();
    } catch (const ServiceError&) {
        return std::string(tail);
    }
}

} // namespace

void AuditLog::add(std::string_view event, const std::string& requestId, const Call& call, unsigned status)
{
    if (!file) return;
    nlohmann::ordered_json line = {
        {"time", utcNow()},         {"request", requestId},          {"event", event},
        {"user", call.caller.user}, {"address", call.client.text()}, {"status", status}};
    if (!call.tail.empty()) line["item"] = readable(call.tail);
    for (const auto name : tellingParameters)
        if (call.request.query().has(name)) line[std::string(name)] = call.request.query().text(name);
    file->write(line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

} // namespace tarnd
