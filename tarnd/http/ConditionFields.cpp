#include "tarnd/http/ConditionFields.h"

#include "tarnd/http/Sentences.h"

#include <algorithm>

namespace tarnd {

namespace {

/// What a tag `W/"…"` says, which vouches for something like the content only.
enum class Weak { counts, matchesNothing };

class TagList {
public:
    TagList(std::string_view header, std::string_view list) : header(header), rest(list) {}

    Condition::Tags read(Weak weak)
    {
        if (rest == "*") return {true};
        Condition::Tags tags;
        skip(" \t,");
        require(!rest.empty());
        while (!rest.empty()) {
            const bool isWeak = takes("W/");
            auto tag = quoted();
            if (!isWeak || weak == Weak::counts) tags.named.push_back(std::move(tag));
            skip(" \t");
            require(rest.empty() || rest.front() == ',');
            skip(" \t,");
        }
        return tags;
    }

private:
    void require(bool isRead) const
    {
        if (!isRead) throw sentences::badTag(header);
    }

    void skip(std::string_view characters)
    {
        rest.remove_prefix(std::min(rest.find_first_not_of(characters), rest.size()));
    }

    bool takes(std::string_view text)
    {
        if (!rest.starts_with(text)) return false;
        rest.remove_prefix(text.size());
        return true;
    }

    std::string quoted()
    {
        require(takes("\""));
        const auto size = rest.find('"');
        require(size != rest.npos);
        std::string tag(rest.substr(0, size));
        rest.remove_prefix(size + 1);
        return tag;
    }

    std::string_view header, rest;
};

std::optional<Condition::Tags> tagsOf(const Request& request, std::string_view header, Weak weak)
{
    const auto values = request.headerValues(header);
    if (values.empty()) return {};
    const auto list = joined(values);
    return TagList(header, list).read(weak);
}

} // namespace

Condition conditionOf(const Request& request)
{
    return {tagsOf(request, "If-Match", Weak::matchesNothing),
            tagsOf(request, "If-None-Match", Weak::counts)};
}

} // namespace tarnd
