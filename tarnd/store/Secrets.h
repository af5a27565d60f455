#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

namespace tarnd {

/// `bytes` bytes of the system's cryptographic random source as lower-case hex (two digits a byte). A weaker one is
/// never used instead.
std::string randomHex(std::size_t bytes);

/// SHA-256 as 64 lower-case hex digits.
std::string sha256Hex(std::string_view data);

/// The bytes that the hex digits stand for, as base64.
std::string base64OfHex(std::string_view hex);

/// Compares without telling by its duration where the first difference is; different lengths are unequal.
bool equalInConstantTime(std::string_view a, std::string_view b);

/// SHA-256 of bytes that arrive in pieces. Not for use by two threads at once.
class Sha256 {
public:
    Sha256();
    ~Sha256();
    Sha256(Sha256&&) noexcept;
    Sha256& operator=(Sha256&&) noexcept;

    void update(const void* data, std::size_t size);

    /// The digest as 64 hex digits; nothing may follow it.
    std::string finish();

private:
    struct Context;
    std::unique_ptr<Context> context;
};

} // namespace tarnd
