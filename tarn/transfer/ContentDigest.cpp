#include "tarn/transfer/ContentDigest.h"

#include <openssl/evp.h>

#include <array>
#include <charconv>
#include <stdexcept>

namespace connector::tarn {
namespace {

constexpr std::string_view key = "sha-256=:";
/// 32 bytes in base64.
constexpr std::size_t encodedBytes = 44;

bool isBoundary(std::string_view text, std::size_t at)
{
    return at == 0 || text[at - 1] == ' ' || text[at - 1] == ',' || text[at - 1] == '\t';
}

} // namespace

std::string hexOf(std::string_view bytes)
{
    constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const unsigned char byte : bytes) {
        text += digits[byte / 16];
        text += digits[byte % 16];
    }
    return text;
}

std::string sha256In(std::string_view contentDigest)
{
    auto found = contentDigest.find(key);
    // That of another algorithm may end like it.
    while (found != std::string_view::npos && !isBoundary(contentDigest, found))
        found = contentDigest.find(key, found + key.size());
    if (found == std::string_view::npos) return {};
    const auto encoded = contentDigest.substr(found + key.size());
    if (encoded.size() <= encodedBytes || encoded[encodedBytes] != ':' || encoded[encodedBytes - 1] != '=') {
        return {};
    }
    std::array<char, 33> bytes{}; // 44 digits stand for 33 bytes, of which the last is padding
    const int decoded = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                        reinterpret_cast<const unsigned char*>(encoded.data()), encodedBytes);
    return decoded == 33 ? hexOf({bytes.data(), 32}) : std::string();
}

std::string contentDigestOf(std::string_view sha256)
{
    std::array<unsigned char, 32> bytes{};
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        const auto digits = sha256.size() == 2 * bytes.size() ? sha256.substr(2 * i, 2) : std::string_view();
        const auto [end, fault] = std::from_chars(digits.data(), digits.data() + digits.size(), bytes[i], 16);
        if (digits.empty() || fault != std::errc() || end != digits.data() + digits.size()) {
            throw std::invalid_argument("A SHA-256 has 64 hexadecimal digits.");
        }
    }
    std::array<unsigned char, encodedBytes + 1> encoded{}; // and a final zero
    EVP_EncodeBlock(encoded.data(), bytes.data(), static_cast<int>(bytes.size()));
    return std::string(key) + reinterpret_cast<const char*>(encoded.data()) + ":";
}

} // namespace connector::tarn
