#include "tarnd/http/ConditionFields.h"

#include "tarnd/http/Sentences.h"

#include <algorithm>

namespace tarnd {

namespace {

/// @param text  `*`, `"tag"` or `W/"tag"`: a weak one tells no content from another, and is no tag of ours
std::string tagIn(std::string_view text)
{
    const auto from = std::min(text.find_first_not_of(" \t"), text.size());
    text = text.substr(from, text.find_last_not_of(" \t") + 1 - from);
    const bool isQuoted = text.size() >= 2 && text.front() == '"' && text.back() == '"';
    return std::string(isQuoted ? text.substr(1, text.size() - 2) : text);
}

std::optional<Condition::Tags> tagsOf(const Request& request, std::string_view header)
{
    const auto values = request.headerValues(header);
    if (values.empty()) return {};
    Condition::Tags tags;
    for (auto value : values) {
        while (!value.empty()) {
            tags.push_back(tagIn(value.substr(0, value.find(','))));
            value.remove_prefix(std::min(value.find(','), value.size() - 1) + 1);
        }
    }
    return tags;
}

} // namespace

Condition conditionOf(const Request& request)
{
    if (!request.headerValues("If-Unmodified-Since").empty())
        throw sentences::conditionalChange("If-Unmodified-Since");
    return {tagsOf(request, "If-Match"), tagsOf(request, "If-None-Match")};
}

} // namespace tarnd
