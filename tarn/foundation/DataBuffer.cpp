#include "tarn/foundation/DataBuffer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <stdexcept>
#include <utility>

namespace connector::common {
namespace {

[[noreturn]] void outOfMemory()
{
    throw std::runtime_error("Out of memory!");
}

} // namespace

DataBuffer::DataBuffer(std::string_view bytes)
{
    if (bytes.empty()) return;
    data = std::malloc(bytes.size());
    if (!data) outOfMemory();
    std::memcpy(data, bytes.data(), bytes.size());
    capacity = size = bytes.size();
}

DataBuffer::DataBuffer(void* allocated, std::uint64_t capacityBytes, std::uint64_t used)
    : data(allocated), capacity(capacityBytes), size(used)
{
}

DataBuffer::DataBuffer(DataBuffer&& other) noexcept
    : data(std::exchange(other.data, nullptr))
    , capacity(std::exchange(other.capacity, 0))
    , size(std::exchange(other.size, 0))
{
}

DataBuffer::DataBuffer(const DataBuffer& other) : DataBuffer(other.bytes()) {}

DataBuffer& DataBuffer::operator=(DataBuffer other) noexcept
{
    std::swap(data, other.data);
    std::swap(capacity, other.capacity);
    std::swap(size, other.size);
    return *this;
}

DataBuffer::~DataBuffer()
{
    std::free(data);
}

void DataBuffer::reserve(std::uint64_t needed)
{
    if (data && capacity >= needed) return;
    const std::uint64_t doubled =
        capacity > std::numeric_limits<std::uint64_t>::max() / 2 ? needed : 2 * capacity;
    const std::uint64_t grown = std::max(doubled, needed);
    void* moved = std::realloc(data, grown);
    if (!moved) outOfMemory();
    data = moved;
    capacity = grown;
}

} // namespace connector::common
