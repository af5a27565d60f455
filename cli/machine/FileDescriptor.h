#pragma once

#include <unistd.h>
#include <utility>

namespace tarncli {

/// Owns an open file descriptor; -1 when empty.
class FileDescriptor {
public:
    FileDescriptor() = default;

    explicit FileDescriptor(int owned) : fd(owned) {}

    FileDescriptor(FileDescriptor&& other) noexcept : fd(std::exchange(other.fd, -1)) {}

    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        std::swap(fd, other.fd);
        return *this;
    }

    ~FileDescriptor() { reset(); }

    void reset()
    {
        if (fd >= 0) ::close(std::exchange(fd, -1));
    }

    int get() const { return fd; }

    explicit operator bool() const { return fd >= 0; }

private:
    int fd = -1;
};

} // namespace tarncli
