#include "cli/remote/StoredNames.h"

#include <algorithm>
#include <cstdio>

namespace tarncli {

namespace {

bool isOn = false;

/// How many bytes the control character at `at` has, or the noncharacter that XML cannot carry; 0: it is neither.
std::size_t controlLength(std::string_view name, std::size_t at)
{
    const auto rest = name.substr(at);
    const auto byte = [&](std::size_t place) { return static_cast<unsigned char>(rest[place]); };
    if (byte(0) < 0x20 || byte(0) == 0x7f) return 1;
    if (byte(0) == 0xc2 && rest.size() > 1 && byte(1) >= 0x80 && byte(1) < 0xa0) return 2; // U+0080 to U+009F
    return rest.starts_with("\xef\xbf\xbe") || rest.starts_with("\xef\xbf\xbf") ? 3 : 0;
}

/// '%' is only where it must be.
std::size_t codedLength(std::string_view name, std::size_t at)
{
    return name[at] == '?' || name[at] == '#' ? 1 : controlLength(name, at);
}

/// The byte that "%3F" at `at` would stand for.
std::optional<char> byteAt(std::string_view text, std::size_t at)
{
    const auto digit = [&](std::size_t place) {
        const char c = place < text.size() ? text[place] : '\0';
        return c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
    };
    if (at >= text.size() || text[at] != '%' || digit(at + 1) < 0 || digit(at + 2) < 0) return {};
    return static_cast<char>(digit(at + 1) * 16 + digit(at + 2));
}

constexpr std::size_t codeSize = 3; // of each byte

/// The character that "%3F" or "%C2%85" at `at` stands for; empty: it is no code.
std::string characterAt(std::string_view text, std::size_t at)
{
    std::string bytes;
    while (const auto byte = byteAt(text, at + codeSize * bytes.size()))
        bytes += *byte;
    if (bytes.empty() || bytes.front() == '\0') return {}; // no name here can have that
    return bytes.substr(0, bytes.front() == '%' ? 1 : codedLength(bytes, 0));
}

std::string encode(std::string_view name)
{
    std::string stored;
    for (std::size_t at = 0; at < name.size();) {
        const auto coded = characterAt(name, at).empty() ? codedLength(name, at) : 1;
        char code[codeSize + 1];
        for (const char c : name.substr(at, coded)) {
            std::snprintf(code, sizeof code, "%%%02X", static_cast<unsigned char>(c));
            stored += code;
        }
        if (coded == 0) stored += name[at];
        at += std::max(coded, std::size_t{1});
    }
    return stored;
}

std::string decode(std::string_view stored)
{
    std::string name;
    for (std::size_t at = 0; at < stored.size();) {
        const auto character = characterAt(stored, at);
        name += character.empty() ? std::string(1, stored[at]) : character;
        at += std::max(codeSize * character.size(), std::size_t{1});
    }
    return name;
}

} // namespace

void encodeNames(bool on)
{
    isOn = on;
}

bool namesAreEncoded()
{
    return isOn;
}

bool hasControlCharacter(std::string_view name)
{
    for (std::size_t at = 0; at < name.size(); ++at)
        if (controlLength(name, at) > 0) return true;
    return false;
}

std::string encodedName(std::string_view name)
{
    return isOn ? encode(name) : std::string(name);
}

std::string decodedName(std::string_view stored)
{
    return nameOfStored(stored).value_or(std::string(stored));
}

std::optional<std::string> nameOfStored(std::string_view stored)
{
    if (!isOn) return std::string(stored);
    auto name = decode(stored);
    if (encode(name) != stored) return {};
    return name;
}

} // namespace tarncli
