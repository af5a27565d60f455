#include "tarnd/store/ItemPath.h"

#include "tarnd/store/Sentences.h"

#include <utf8.h>

#include <cstdint>

namespace tarnd {

namespace {

constexpr std::size_t maxNameBytes = 255;

/// C0, DEL and C1 garble terminals and logs; U+FFFE and U+FFFF cannot stand in an XML reply.
bool isUnprintable(std::uint32_t c)
{
    return c < 0x20 || (c >= 0x7f && c < 0xa0) || c == 0xfffe || c == 0xffff;
}

} // namespace

std::string whyNameIsBad(std::string_view name)
{
    if (name.empty()) return "a name is empty.";
    if (name == "." || name == "..") return "\".\" and \"..\" are not names.";
    if (name.size() > maxNameBytes) return "a name is longer than 255 bytes.";
    if (!utf8::is_valid(name.begin(), name.end())) return "a name is not valid UTF-8.";
    if (name.find('/') != std::string_view::npos) return "a name holds a '/'.";
    for (auto at = name.begin(); at != name.end();)
        if (isUnprintable(utf8::unchecked::next(at))) return "a name holds a control character.";
    return {};
}

std::vector<std::string_view> splitPath(std::string_view path)
{
    if (path.empty() || path.front() != '/') throw sentences::badPath("it does not begin with '/'.");
    std::vector<std::string_view> names;
    if (path == "/") return names;
    while (!path.empty()) {
        path.remove_prefix(1);
        names.push_back(path.substr(0, path.find('/')));
        path.remove_prefix(names.back().size());
    }
    return names;
}

ItemPath::ItemPath(std::vector<std::string> names) : segments(std::move(names))
{
    for (const auto& name : segments)
        if (const auto why = whyNameIsBad(name); !why.empty()) throw sentences::badPath(why);
}

ItemPath ItemPath::fromText(std::string_view text)
{
    const auto names = splitPath(text);
    return ItemPath({names.begin(), names.end()});
}

ItemPath ItemPath::parent() const
{
    ItemPath path = *this;
    path.segments.pop_back();
    return path;
}

std::string ItemPath::text() const
{
    if (isRoot()) return "/";
    std::string text;
    for (const auto& name : segments)
        text.append("/").append(name);
    return text;
}

} // namespace tarnd
