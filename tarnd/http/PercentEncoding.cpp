#include "tarnd/http/PercentEncoding.h"

#include "tarnd/http/Sentences.h"

#include <algorithm>
#include <utf8.h>

namespace tarnd {

namespace {

int hexDigit(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

bool isUnreserved(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
           std::string_view("-._~").find(c) != std::string_view::npos;
}

char decodeEscape(std::string_view escape)
{
    const int high = escape.size() < 3 ? -1 : hexDigit(escape[1]);
    const int low = escape.size() < 3 ? -1 : hexDigit(escape[2]);
    if (high < 0 || low < 0) throw sentences::badEncoding();
    return static_cast<char>(high * 16 + low);
}

} // namespace

std::string percentDecode(std::string_view encoded)
{
    std::string text;
    text.reserve(encoded.size());
    while (!encoded.empty()) {
        const bool escape = encoded.front() == '%';
        text += escape ? decodeEscape(encoded) : encoded.front();
        encoded.remove_prefix(escape ? 3 : 1);
    }
    // PostgreSQL keeps neither, and would say so in words of its own.
    if (text.find('\0') != std::string::npos || !utf8::is_valid(text.begin(), text.end()))
        throw sentences::badEncoding();
    return text;
}

std::string percentEncode(std::string_view text)
{
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (isUnreserved(c))
            encoded += c;
        else
            ((encoded += '%') += digits[byte >> 4]) += digits[byte & 15];
    }
    return encoded;
}

} // namespace tarnd
