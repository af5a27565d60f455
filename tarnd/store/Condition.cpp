#include "tarnd/store/Condition.h"

#include <algorithm>

namespace tarnd {

namespace {

bool holds(const Condition::Tags& tags, const std::optional<Node>& file)
{
    if (!file) return false;
    const auto now = contentTag(file->version.id, file->versionRevision, file->content);
    return tags.any || std::ranges::find(tags.named, now) != tags.named.end();
}

} // namespace

void Condition::require(const std::optional<Node>& existing) const
{
    if ((match && !holds(*match, existing)) || (noneMatch && holds(*noneMatch, existing)))
        throw sentences::contentChanged();
}

std::string contentTag(const std::string& version, std::int64_t revision, const std::string& content)
{
    // Its number would come again for another content after an older database was restored.
    constexpr std::size_t enough = 12; // digits
    return revision == 0 ? version : version + "-" + content.substr(0, enough);
}

} // namespace tarnd
