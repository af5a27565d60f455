#include "tarnd/http/Call.h"

#include "tarnd/http/PercentEncoding.h"

namespace tarnd {

/// Split first, then each name decoded once: so "%2F" can never become a separator.
ItemPath pathOf(std::string_view encoded)
{
    std::vector<std::string> names;
    for (const auto name : splitPath(encoded))
        names.push_back(percentDecode(name));
    return ItemPath(std::move(names));
}

Location itemOf(const Call& call)
{
    return {pathOf(call.tail), call.request.query().text("bucket")};
}

std::string idOf(const Call& call)
{
    return call.tail.empty() ? "" : percentDecode(call.tail.substr(1));
}

VersionChoice versionOf(const Call& call)
{
    const auto& query = call.request.query();
    return {query.text("versionId"), query.number("versionLabel").value_or(0)};
}

} // namespace tarnd
