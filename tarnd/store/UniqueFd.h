#pragma once

#include <unistd.h>
#include <utility>

namespace tarnd {

/// Owns one file descriptor; closes it in the end.
class UniqueFd {
public:
    UniqueFd() = default;

    explicit UniqueFd(int fd) noexcept : fd_(fd) {}

    UniqueFd(UniqueFd&& other) noexcept : fd_(other.release()) {}

    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }

    ~UniqueFd()
    {
        if (fd_ >= 0) ::close(fd_);
    }

    int get() const noexcept { return fd_; }

    explicit operator bool() const noexcept { return fd_ >= 0; }

    /// Gives the descriptor away; the receiver closes it.
    int release() noexcept { return std::exchange(fd_, -1); }

private:
    int fd_ = -1;
};

} // namespace tarnd
