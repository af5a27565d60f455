#include "tarn/transfer/Sha256.h"

#include "tarn/transfer/ContentDigest.h"

#include <openssl/evp.h>

#include <array>
#include <new>
#include <stdexcept>
#include <utility>

namespace connector::tarn {
namespace {

/// Looked for once: that takes longer than hashing a small file.
const EVP_MD* algorithm()
{
    static const EVP_MD* const found = EVP_MD_fetch(nullptr, "SHA256", nullptr);
    return found ? found : EVP_sha256();
}

} // namespace

struct Sha256::State {
    struct Free {
        void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    };

    State() : context(EVP_MD_CTX_new())
    {
        if (!context) throw std::bad_alloc();
    }

    State(const State& other) : State()
    {
        bytes = other.bytes;
        require(EVP_MD_CTX_copy_ex(context.get(), other.context.get()));
    }

    static void require(int done)
    {
        if (done != 1) throw std::runtime_error("SHA-256 is not available.");
    }

    std::unique_ptr<EVP_MD_CTX, Free> context;
    std::uint64_t bytes = 0;
};

Sha256::Sha256() : state(std::make_unique<State>())
{
    State::require(EVP_DigestInit_ex(state->context.get(), algorithm(), nullptr));
}

Sha256::Sha256(const Sha256& other) : state(std::make_unique<State>(*other.state)) {}

Sha256::Sha256(Sha256&& other) noexcept = default;

Sha256& Sha256::operator=(Sha256 other) noexcept
{
    std::swap(state, other.state);
    return *this;
}

Sha256::~Sha256() = default;

void Sha256::add(std::string_view bytes)
{
    State::require(EVP_DigestUpdate(state->context.get(), bytes.data(), bytes.size()));
    state->bytes += bytes.size();
}

std::uint64_t Sha256::bytes() const
{
    return state->bytes;
}

std::string Sha256::hex() const
{
    const State copy(*state); // a context that has been finished takes no more
    std::array<char, 32> digest{};
    State::require(
        EVP_DigestFinal_ex(copy.context.get(), reinterpret_cast<unsigned char*>(digest.data()), nullptr));
    return hexOf({digest.data(), digest.size()});
}

} // namespace connector::tarn
