#include "tarn/transfer/ContentDigest.h"

#include <openssl/evp.h>

#include <array>

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
    const auto found = contentDigest.find(key);
    if (found == std::string_view::npos || !isBoundary(contentDigest, found)) return {};
    const auto encoded = contentDigest.substr(found + key.size());
    if (encoded.size() <= encodedBytes || encoded[encodedBytes] != ':' || encoded[encodedBytes - 1] != '=') {
        return {};
    }
    std::array<char, 33> bytes{}; // 44 digits stand for 33 bytes, of which the last is padding
    const int decoded = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(bytes.data()),
                                        reinterpret_cast<const unsigned char*>(encoded.data()), encodedBytes);
    return decoded == 33 ? hexOf({bytes.data(), 32}) : std::string();
}

} // namespace connector::tarn
