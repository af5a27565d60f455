#include "tarnd/store/FileSystem.h"

#include "tarnd/store/UniqueFd.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>

namespace tarnd {

ServiceError systemError(const std::filesystem::path& path)
{
    const int code = errno;
    const auto detail = path.string() + ": " + std::generic_category().message(code);
    // EFBIG: a file system's own limit on one file; to the client it is the same lack of room.
    const bool full = code == ENOSPC || code == EDQUOT || code == EFBIG;
    return full ? sentences::storageFull.because(detail) : sentences::internal.because(detail);
}

bool FileWatch::isInPlace()
{
    struct stat now = {};
    const bool there = ::stat(path.c_str(), &now) == 0;
    if (inode == 0 && there) {
        device = now.st_dev;
        inode = now.st_ino;
    }
    return inode == 0 || (there && now.st_dev == device && now.st_ino == inode);
}

bool makeFolder(const std::filesystem::path& path)
{
    // Tried before it is looked for: of two processes that make it at once both must go on.
    if (::mkdir(path.c_str(), 0700) == 0) return true;
    if (errno == EEXIST && std::filesystem::is_directory(path)) return false;
    throw systemError(path);
}

void syncFolder(const std::filesystem::path& path)
{
    const UniqueFd folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder || ::fsync(folder.get()) != 0) throw systemError(path);
}

} // namespace tarnd
