#include "cli/sync/Filter.h"

#include "cli/remote/Wildcards.h"
#include "cli/transfer/IncomingFile.h"

#include <algorithm>
#include <span>

namespace tarncli {

namespace {

std::vector<std::string> namesIn(std::string_view path)
{
    std::vector<std::string> names;
    while (!path.empty()) {
        const auto name = path.substr(0, path.find('/'));
        if (!name.empty()) names.emplace_back(name);
        path.remove_prefix(std::min(path.size(), name.size() + 1));
    }
    return names;
}

bool standsFor(std::span<const std::string> pattern, std::span<const std::string> names)
{
    if (pattern.empty()) return names.empty();
    if (pattern.front() == "**") {
        for (std::size_t skipped = 0; skipped <= names.size(); ++skipped)
            if (standsFor(pattern.subspan(1), names.subspan(skipped))) return true;
        return false;
    }
    return !names.empty() && matches(pattern.front(), names.front()) &&
           standsFor(pattern.subspan(1), names.subspan(1));
}

bool applies(const Filter::Rule& rule, const std::string& below, bool isFolder)
{
    std::string_view pattern = rule.pattern;
    if (pattern.ends_with('/')) {
        if (!isFolder) return false;
        pattern.remove_suffix(1);
    }
    if (pattern.find('/') == std::string_view::npos)
        return matches(std::string(pattern), below.substr(below.rfind('/') + 1));
    return standsFor(namesIn(pattern), namesIn(below));
}

/// What this program itself leaves in a local folder.
bool isOwn(std::string_view name)
{
    return name == ignoreFileName || isIncoming(name);
}

} // namespace

bool Filter::wants(const std::string& below, bool isFolder) const
{
    if (!isFolder && isOwn(std::string_view(below).substr(below.rfind('/') + 1))) return false;
    for (auto rule = ruleList.rbegin(); rule != ruleList.rend(); ++rule)
        if (applies(*rule, below, isFolder)) return rule->includes;
    return isFolder || !onlyIncluding;
}

std::vector<Filter::Rule> rulesIn(std::string_view text)
{
    std::vector<Filter::Rule> rules;
    while (!text.empty()) {
        auto line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (line.empty() || line.starts_with('#')) continue;
        const bool includes = line.starts_with('!');
        if (includes) line.remove_prefix(1);
        rules.push_back({std::string(line), includes});
    }
    return rules;
}

} // namespace tarncli
