#pragma once

#include "tarn/foundation/Export.h"

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace connector::tarn {

/// SHA-256 of bytes that come in pieces. A copy goes on from where the original stands.
class TARN_API Sha256 {
public:
    Sha256();
    Sha256(const Sha256& other);
    Sha256(Sha256&& other) noexcept;
    Sha256& operator=(Sha256 other) noexcept;
    ~Sha256();

    void add(std::string_view bytes);

    /// How many have been added.
    std::uint64_t bytes() const;

    /// Of all bytes so far: 64 hexadecimal digits in lower case. More may be added afterwards.
    std::string hex() const;

private:
    struct State;
    std::unique_ptr<State> state;
};

} // namespace connector::tarn
