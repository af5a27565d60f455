#include "tarnd/store/ItemPath.h"

#include "tarnd/store/Sentences.h"

#include <utf8.h>

#include <algorithm>
#include <cstdint>

namespace tarnd {

namespace {

constexpr std::size_t maxNameBytes = 255;

int hexDigit(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

std::string decoded(std::string_view segment)
{
    std::string name;
    for (std::size_t i = 0; i < segment.size(); ++i) {
        if (segment[i] != '%') {
            name += segment[i];
            continue;
        }
        const int high = i + 2 < segment.size() ? hexDigit(segment[i + 1]) : -1;
        const int low = i + 2 < segment.size() ? hexDigit(segment[i + 2]) : -1;
        if (high < 0 || low < 0) throw sentences::badPath("a '%' is not followed by two hexadecimal digits.");
        name += static_cast<char>(high * 16 + low);
        i += 2;
    }
    return name;
}

/// C0, DEL and C1 garble terminals and logs; U+FFFE and U+FFFF cannot stand in an XML reply.
bool isUnprintable(std::uint32_t c)
{
    return c < 0x20 || (c >= 0x7f && c < 0xa0) || c == 0xfffe || c == 0xffff;
}

template <class Decode>
std::vector<std::string> namesOf(std::string_view path, Decode decode)
{
    if (path.empty() || path.front() != '/') throw sentences::badPath("it does not begin with '/'.");
    std::vector<std::string> names;
    if (path == "/") return names;
    while (!path.empty()) {
        path.remove_prefix(1);
        const auto end = std::min(path.find('/'), path.size());
        names.push_back(decode(path.substr(0, end)));
        if (const auto why = whyNameIsBad(names.back()); !why.empty()) throw sentences::badPath(why);
        path.remove_prefix(end);
    }
    return names;
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

ItemPath ItemPath::fromUrl(std::string_view encoded)
{
    ItemPath path;
    path.segments = namesOf(encoded, decoded);
    return path;
}

ItemPath ItemPath::fromText(std::string_view decoded)
{
    ItemPath path;
    path.segments = namesOf(decoded, [](std::string_view name) { return std::string(name); });
    return path;
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
