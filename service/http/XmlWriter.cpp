#include "service/http/XmlWriter.h"

#include <utf8.h>

namespace tarnd {

namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";

bool isXmlCharacter(std::uint32_t c)
{
    return c == '\t' || c == '\n' || c == '\r' || (c >= 0x20 && c <= 0xD7FF) ||
           (c >= 0xE000 && c <= 0xFFFD) || (c >= 0x10000 && c <= 0x10FFFF);
}

/// The length of the character that begins at `rest`, or 0 when it is not UTF-8 or not allowed in XML.
std::size_t characterLength(std::string_view rest)
{
    if (const char first = rest.front(); first >= 0x20) return 1;
    try {
        auto next = rest.begin();
        const auto c = utf8::next(next, rest.end());
        return isXmlCharacter(c) ? static_cast<std::size_t>(next - rest.begin()) : 0;
    } catch (const utf8::exception&) {
        return 0;
    }
}

void appendEscaped(std::string& out, std::string_view value)
{
    while (!value.empty()) {
        const auto length = characterLength(value);
        switch (value.front()) {
        case '&':
            out += "&amp;";
            break;
        case '<':
            out += "&lt;";
            break;
        case '>':
            out += "&gt;";
            break;
        case '"':
            out += "&quot;";
            break;
        case '\r':
            out += "&#13;";
            break; // a parser turns a plain one into a line feed
        default:
            out += length == 0 ? replacement : value.substr(0, length);
        }
        value.remove_prefix(length == 0 ? 1 : length);
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
    text(name, std::to_string(value));
}

void XmlWriter::number(std::string_view name, std::uint64_t value)
{
    text(name, std::to_string(value));
}

void XmlWriter::boolean(std::string_view name, bool value)
{
    text(name, value ? "true" : "false");
}

std::string XmlWriter::finish()
{
    close(root);
    return std::move(document);
}

} // namespace tarnd
