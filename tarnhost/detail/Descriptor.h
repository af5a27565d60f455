#pragma once

#include <unistd.h>

#include <utility>

namespace connector::host::detail {

/// Owns a file descriptor; -1 is none.
class Descriptor {
public:
    explicit Descriptor(int taken = -1) noexcept : number(taken) {}

    Descriptor(Descriptor&& other) noexcept : number(std::exchange(other.number, -1)) {}

    Descriptor& operator=(Descriptor&& other) noexcept
    {
        std::swap(number, other.number);
        return *this;
    }

    ~Descriptor()
    {
        if (isOpen()) ::close(number);
    }

    bool isOpen() const { return number >= 0; }

    int get() const { return number; }

private:
    int number;
};

} // namespace connector::host::detail
