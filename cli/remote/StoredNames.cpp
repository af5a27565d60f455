#include "cli/remote/StoredNames.h"

#include <cstdio>

namespace tarncli {

namespace {

bool isOn = false;

/// '%' is only where it must be.
bool needsCode(unsigned char c)
{
    return c == '?' || c == '#' || c < 0x20 || c == 0x7f;
}

/// The character that "%3F" at `at` stands for; 0: it is no code.
unsigned char codeAt(std::string_view text, std::size_t at)
{
    const auto digit = [&](std::size_t place) {
        const char c = place < text.size() ? text[place] : '\0';
        return c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
    };
    const int high = digit(at + 1);
    const int low = digit(at + 2);
    if (text[at] != '%' || high < 0 || low < 0) return 0;
    const auto c = static_cast<unsigned char>(high * 16 + low);
    return c == '%' || needsCode(c) ? c : 0;
}

std::string encode(std::string_view name)
{
    std::string stored;
    for (std::size_t at = 0; at < name.size(); ++at) {
        const auto c = static_cast<unsigned char>(name[at]);
        char code[4] = {name[at]};
        if (needsCode(c) || codeAt(name, at) != 0) std::snprintf(code, sizeof code, "%%%02X", c);
        stored += code;
    }
    return stored;
}

std::string decode(std::string_view stored)
{
    std::string name;
    for (std::size_t at = 0; at < stored.size(); ++at) {
        const auto c = codeAt(stored, at);
        name += c == 0 ? stored[at] : static_cast<char>(c);
        if (c != 0) at += 2;
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
