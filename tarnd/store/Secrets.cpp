#include "tarnd/store/Secrets.h"

#include "tarnd/store/Sentences.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>

#include <array>
#include <cstdlib>
#include <vector>

namespace tarnd {

namespace {

std::string hex(const unsigned char* bytes, std::size_t size)
{
    static constexpr char digits[] = "0123456789abcdef";
    std::string text(size * 2, '\0');
    for (std::size_t i = 0; i < size; ++i) {
        text[2 * i] = digits[bytes[i] >> 4];
        text[2 * i + 1] = digits[bytes[i] & 15];
    }
    return text;
}

/// Looked for once: OpenSSL takes longer for that than to hash a session id.
const EVP_MD* sha256()
{
    static const EVP_MD* const found = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    return found ? found : EVP_sha256();
}

} // namespace

std::string randomHex(std::size_t bytes)
{
    std::vector<unsigned char> random(bytes);
    ::arc4random_buf(random.data(), bytes); // the kernel's
    return hex(random.data(), random.size());
}

std::string sha256Hex(std::string_view data)
{
    Sha256 digest;
    digest.update(data.data(), data.size());
    return digest.finish();
}

std::string base64OfHex(std::string_view hex)
{
    const auto digit = [](char c) { return c <= '9' ? c - '0' : c - 'a' + 10; };
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(digit(hex[i]) << 4 | digit(hex[i + 1])));
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '\0');
    auto* const out = reinterpret_cast<unsigned char*>(text.data());
    text.resize(static_cast<std::size_t>(EVP_EncodeBlock(out, bytes.data(), static_cast<int>(bytes.size()))));
    return text;
}

bool equalInConstantTime(std::string_view a, std::string_view b)
{
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

struct Sha256::Context {
    EVP_MD_CTX* md = EVP_MD_CTX_new();

    ~Context() { EVP_MD_CTX_free(md); }
};

Sha256::Sha256() : context(std::make_unique<Context>())
{
    if (!context->md || EVP_DigestInit_ex(context->md, sha256(), nullptr) != 1)
        throw sentences::internal.because("SHA-256 is not available");
}

Sha256::~Sha256() = default;
Sha256::Sha256(Sha256&&) noexcept = default;
Sha256& Sha256::operator=(Sha256&&) noexcept = default;

void Sha256::update(const void* data, std::size_t size)
{
    if (EVP_DigestUpdate(context->md, data, size) != 1) throw sentences::internal.because("SHA-256 failed");
}

std::string Sha256::finish()
{
    std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
    unsigned int size = 0;
    if (EVP_DigestFinal_ex(context->md, digest.data(), &size) != 1)
        throw sentences::internal.because("SHA-256 failed");
    return hex(digest.data(), size);
}

} // namespace tarnd
