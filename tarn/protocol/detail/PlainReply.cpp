#include "tarn/protocol/detail/PlainReply.h"

#include <algorithm>
#include <unordered_set>

namespace connector::tarn::detail {
namespace {

constexpr auto none = std::string_view::npos;

/// Takes a declaration off the front of `text`. @returns false when it names an encoding that may hide brackets
bool passDeclaration(std::string_view& text)
{
    if (!text.starts_with("<?xml ")) return true;
    const auto end = text.find("?>");
    if (end == none) return false;
    const auto declaration = text.substr(0, end);
    text.remove_prefix(end + 2);
    return declaration.find("encoding") == none || declaration.find("\"UTF-8\"") != none;
}

/// Not all that XML allows: no colon, since a namespace would have to be looked up, and nothing beyond ASCII.
bool isPlainName(std::string_view name)
{
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' ||
               c == '-' || c == '.';
    });
}

} // namespace

std::optional<std::size_t> namesInPlain(std::string_view text, const ReplyLimits& limits)
{
    if (!passDeclaration(text)) return std::nullopt;
    std::unordered_set<std::string_view> names;
    std::size_t elements = 0;
    std::size_t depth = 0;
    for (auto open = text.find('<'); open != none; open = text.find('<')) {
        text.remove_prefix(open + 1);
        const auto close = text.find('>');
        if (close == none) return std::nullopt;
        auto name = text.substr(0, close);
        text.remove_prefix(close + 1);
        if (name.starts_with('/')) {
            depth -= depth > 0; // too many ends are the parser's to refuse
            continue;
        }
        if (name.ends_with('/')) {
            name.remove_suffix(1);
        } else {
            ++depth;
        }
        if (!isPlainName(name)) return std::nullopt; // also a comment, an entity, an attribute
        names.insert(name);
        // Text stands between brackets only: no more pieces of it than of those.
        const auto nodes = 2 * ++elements + 1;
        if (nodes > limits.nodes || depth > limits.depth || name.size() > limits.nameLength ||
            names.size() > limits.names) {
            return std::nullopt;
        }
    }
    return names.size();
}

} // namespace connector::tarn::detail
