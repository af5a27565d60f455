#include "cli/machine/FileLock.h"

#include "cli/machine/PrivateFile.h"
#include "cli/machine/SystemError.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>

namespace tarncli {

FileDescriptor lockFile(const std::filesystem::path& file)
{
    makePrivateFolder(file.parent_path());
    FileDescriptor fd(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!fd) throwErrno("Could not open", file);
    // Not fcntl(): its lock is gone as soon as the process closes any descriptor of the same file.
    while (::flock(fd.get(), LOCK_EX) != 0)
        if (errno != EINTR) throwErrno("Could not lock", file);
    return fd;
}

std::optional<pid_t> lockOwner(const std::filesystem::path& file)
{
    const FileDescriptor fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC));

    struct flock asked {};

    asked.l_type = F_RDLCK; // asking takes nothing: one who is just starting is not disturbed
    if (!fd || ::fcntl(fd.get(), F_GETLK, &asked) != 0 || asked.l_type == F_UNLCK) return {};
    return asked.l_pid;
}

} // namespace tarncli
