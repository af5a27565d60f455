#include "tarnd/http/XmlWriter.h"

#include <utf8.h>

#include <algorithm>

namespace tarnd {

namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";

bool isXmlCharacter(std::uint32_t c)
{
    return c == '\t' || c == '\n' || c == '\r' || (c >= 0x20 && c <= 0xD7FF) ||
           (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

/// Takes the first character off `rest` and tells how it stands in the document.
std::string_view takeCharacter(std::string_view& rest)
{
    const auto begin = rest.begin();
    auto next = begin;
    bool fits = false;
    try {
        fits = isXmlCharacter(utf8::next(next, rest.end()));
    } catch (const utf8::exception&) {
        next = begin + 1;
    }
    const auto character = rest.substr(0, static_cast<std::size_t>(next - begin));
    rest.remove_prefix(character.size());
    return fits ? character : replacement;
}

bool standsForItself(char c)
{
    return c >= 0x20 && c < 0x7f && c != '&' && c != '<' && c != '>';
}

/// All at once, as far as possible: most names have nothing to be escaped.
void appendEscaped(std::string& out, std::string_view value)
{
    for (;;) {
        const auto plain = std::find_if_not(value.begin(), value.end(), standsForItself);
        out.append(value.begin(), plain);
        value.remove_prefix(static_cast<std::size_t>(plain - value.begin()));
        if (value.empty()) return;
        const auto character = takeCharacter(value);
        switch (character.front()) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '\r':
            out += "&#13;";
            break; // a parser turns a plain one into a line feed
        default:
            out += character;
        }
    }
}

} // namespace

XmlWriter::XmlWriter(std::string_view rootName)
    : document(R"(<?xml version="1.0" encoding="UTF-8"?>)"), root(rootName)
{
    open(root);
}

void XmlWriter::open(std::string_view name)
{
    ((document += '<') += name) += '>';
}

void XmlWriter::close(std::string_view name)
{
    ((document += "</") += name) += '>';
}

void XmlWriter::text(std::string_view name, std::string_view value)
{
    open(name);
    appendEscaped(document, value);
    close(name);
}

void XmlWriter::number(std::string_view name, std::int64_t value)
{
    plain(name, std::to_string(value));
}

void XmlWriter::number(std::string_view name, std::uint64_t value)
{
    plain(name, std::to_string(value));
}

void XmlWriter::boolean(std::string_view name, bool value)
{
    plain(name, value ? "true" : "false");
}

void XmlWriter::plain(std::string_view name, std::string_view value)
{
    open(name);
    document += value;
    close(name);
}

std::string XmlWriter::finish()
{
    close(root);
    return std::move(document);
}

} // namespace tarnd
