#pragma once

#include "tarn/foundation/Export.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace connector::common {

/// An owned, movable buffer of bytes: the content of a file or of an HTTP body.
///
/// `data` comes from malloc or realloc and is released with free, so that a producer can hand over storage it
/// has grown itself. An empty buffer has no storage.
struct TARN_API DataBuffer {
    DataBuffer() = default;
    /// A copy of `bytes`. @throws std::runtime_error "Out of memory!"
    explicit DataBuffer(std::string_view bytes);
    /// Takes over `allocated`, which malloc or realloc returned for `capacityBytes` bytes, `used` of them in use.
    DataBuffer(void* allocated, std::uint64_t capacityBytes, std::uint64_t used);
    DataBuffer(DataBuffer&& other) noexcept;
    /// Allocates exactly `other.size` bytes. @throws std::runtime_error "Out of memory!"
    DataBuffer(const DataBuffer& other);
    DataBuffer& operator=(DataBuffer other) noexcept;
    ~DataBuffer();

    /// The bytes in use; valid while the buffer is neither changed nor destroyed.
    std::string_view bytes() const
    {
        return {static_cast<const char*>(data), static_cast<std::size_t>(size)};
    }

    /// Makes room for at least `needed` bytes, by doubling, so that many small appends stay linear.
    /// @throws std::runtime_error "Out of memory!", leaving the buffer as it was
    void reserve(std::uint64_t needed);

    void* data = nullptr;       ///< null when there is no storage
    std::uint64_t capacity = 0; ///< bytes allocated
    std::uint64_t size = 0;     ///< bytes in use
};

} // namespace connector::common
