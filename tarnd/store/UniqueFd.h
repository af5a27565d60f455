#pragma once

#include <unistd.h>
#include <utility>

namespace tarnd {

/// Owns one file descriptor; closes it in the end.
class UniqueFd {
public:
    UniqueFd() = default;

    explicit UniqueFd(int fd) noexcept : fd(fd) {}

    UniqueFd(UniqueFd&& other) noexcept : fd(other.release()) {}

    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        std::swap(fd, other.fd);
        return *this;
    }

    ~UniqueFd()
    {
        if (fd >= 0) ::close(fd);
    }

    int get() const noexcept { return fd; }

    explicit operator bool() const noexcept { return fd >= 0; }

    /// Gives the descriptor away; the receiver closes it.
    int release() noexcept { return std::exchange(fd, -1); }

private:
    int fd = -1;
};

} // namespace tarnd
