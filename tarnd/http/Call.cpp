#include "tarnd/http/Call.h"

#include "tarnd/http/PercentEncoding.h"

namespace tarnd {

Location itemOf(const Call& call)
{
    return {ItemPath::fromUrl(call.tail), call.request.query().text("bucket")};
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
