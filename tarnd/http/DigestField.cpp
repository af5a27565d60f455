#include "tarnd/http/DigestField.h"

#include "tarnd/http/Request.h"
#include "tarnd/http/Sentences.h"

#include <algorithm>
#include <cctype>

namespace tarnd {

namespace {

constexpr std::size_t sha256Digits = 43; // of base64, without the '=' behind them

bool isDigit64(char c)
{
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '+' || c == '/';
}

/// A dictionary of structured fields (RFC 8941), of whose values only sequences of bytes are of interest.
class Dictionary {
public:
    explicit Dictionary(std::string_view text) : rest(text) {}

    std::string sha256()
    {
        std::string found;
        skip(" ");
        while (!rest.empty()) {
            const auto name = key();
            const auto value = takes('=') ? item() : std::string_view();
            if (name == "sha-256") found = digest(value);
            parameters();
            skip(" \t");
            if (rest.empty()) break;
            require(takes(','));
            skip(" \t");
            require(!rest.empty());
        }
        return found;
    }

private:
    static void require(bool isRead)
    {
        if (!isRead) throw sentences::badDigest();
    }

    static std::string digest(std::string_view value)
    {
        require(value.size() >= 2 && value.front() == ':');
        auto digits = value.substr(1, value.size() - 2);
        digits = digits.substr(0, digits.find('='));
        require(digits.size() == sha256Digits && std::ranges::all_of(digits, isDigit64));
        return std::string(digits);
    }

    void skip(std::string_view blanks)
    {
        rest.remove_prefix(std::min(rest.find_first_not_of(blanks), rest.size()));
    }

    bool takes(char c)
    {
        if (!rest.starts_with(c)) return false;
        rest.remove_prefix(1);
        return true;
    }

    std::string_view take(std::size_t size)
    {
        const auto taken = rest.substr(0, size);
        rest.remove_prefix(taken.size());
        return taken;
    }

    std::string_view key()
    {
        const auto name = take(rest.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789_-.*"));
        require(!name.empty());
        return name;
    }

    /// With its delimiters.
    std::string_view item()
    {
        if (rest.starts_with('"')) return quoted();
        if (rest.starts_with(':')) {
            const auto end = rest.find(':', 1);
            require(end != rest.npos);
            return take(end + 1);
        }
        const auto plain = take(rest.find_first_of("\",;: \t"));
        require(!plain.empty());
        return plain;
    }

    std::string_view quoted()
    {
        std::size_t end = 1;
        while (end < rest.size() && rest[end] != '"')
            end += rest[end] == '\\' ? 2 : 1;
        require(end < rest.size());
        return take(end + 1);
    }

    void parameters()
    {
        while (takes(';')) {
            skip(" ");
            key();
            if (takes('=')) item();
        }
    }

    std::string_view rest;
};

} // namespace

std::string announcedSha256(const std::vector<std::string_view>& values)
{
    const auto list = joined(values);
    return Dictionary(list).sha256();
}

} // namespace tarnd
