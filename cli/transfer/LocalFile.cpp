#include "cli/transfer/LocalFile.h"

#include "cli/machine/FileDescriptor.h"
#include "cli/machine/Memory.h"
#include "cli/machine/SystemError.h"
#include "cli/terminal/Failure.h"
#include "cli/terminal/Text.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>

namespace tarncli {

namespace {

using connector::common::DataBuffer;
namespace fs = std::filesystem;

/// Reads until `room` bytes are there or the end is reached.
std::uint64_t fill(int fd, char* target, std::uint64_t room, const fs::path& file)
{
    std::uint64_t done = 0;
    while (done < room) {
        const auto count = ::read(fd, target + done, room - done);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throwErrno("Could not read", file);
        if (count == 0) break;
        done += static_cast<std::uint64_t>(count);
    }
    return done;
}

DataBuffer allocated(const fs::path& file, std::uint64_t size)
{
    if (size == 0) return {};
    requireMemory(escaped(file.string()), size);
    void* memory = std::malloc(size); // the buffer frees what it owns with free()
    if (memory == nullptr)
        throw Failure(ExitCode::failure,
                      "There is not enough memory to read " + escaped(file.string()) + ".");
    return {memory, size, size};
}

bool isSame(const struct stat& before, const struct stat& after)
{
    return before.st_size == after.st_size && before.st_mtim.tv_sec == after.st_mtim.tv_sec &&
           before.st_mtim.tv_nsec == after.st_mtim.tv_nsec;
}

} // namespace

DataBuffer readLocalFile(const fs::path& file, Symlinks symlinks)
{
    const int noFollow = symlinks == Symlinks::refuse ? O_NOFOLLOW : 0;
    // Not blocking: what was a file when the folder was walked may be a pipe by now.
    const FileDescriptor fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | noFollow));

    struct stat before {};

    if (!fd || ::fstat(fd.get(), &before) != 0) throwErrno("Could not read", file);
    if (!S_ISREG(before.st_mode))
        throw Failure(ExitCode::failure, escaped(file.string()) + " is not a regular file.");
    const auto size = static_cast<std::uint64_t>(before.st_size);
    auto content = allocated(file, size);
    const auto done = fill(fd.get(), static_cast<char*>(content.data), size, file);

    struct stat after {};

    if (::fstat(fd.get(), &after) != 0) throwErrno("Could not read", file);
    if (done != size || !isSame(before, after))
        throw Failure(ExitCode::failure,
                      escaped(file.string()) + " changed while it was being read; store it again.");
    return content;
}

DataBuffer readStandardInput()
{
    constexpr std::uint64_t piece = 1 << 20;
    DataBuffer content;
    while (true) {
        if (content.capacity - content.size < piece) {
            requireMemory("Standard input", content.size + piece);
            content.reserve(content.size + piece);
        }
        const auto room = content.capacity - content.size;
        const auto count =
            fill(STDIN_FILENO, static_cast<char*>(content.data) + content.size, room, "standard input");
        content.size += count;
        if (count < room) return content;
    }
}

} // namespace tarncli
