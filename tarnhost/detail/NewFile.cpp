#include "tarnhost/detail/NewFile.h"

#include "tarnhost/detail/LocalName.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <string>
#include <system_error>

namespace connector::host::detail {
namespace {

namespace fs = std::filesystem;

/// Of its own length, since the name of the file may have no room for more.
fs::path temporaryIn(const fs::path& folder)
{
    static std::atomic<unsigned> counter{0};
    return folder / (".tarn-" + std::to_string(::getpid()) + "-" + std::to_string(++counter) + ".part");
}

} // namespace

NewFile::NewFile(const fs::path& finalName) : name(finalName)
{
    checkLocalName(name);
    target = behindLinks();

    struct stat replaced {};

    const bool replaces = ::stat(target.c_str(), &replaced) == 0;
    if (replaces && S_ISDIR(replaced.st_mode)) fail(EISDIR);
    // A device or a pipe in whose place a file came would be missed by others.
    if (replaces && !S_ISREG(replaced.st_mode)) fail(ENOTSUP);
    open(replaces);
    if (!replaces) return;
    // Some file systems know no owners or modes.
    [[maybe_unused]] const auto owned = ::fchown(descriptor(), replaced.st_uid, replaced.st_gid);
    ::fchmod(descriptor(), replaced.st_mode & 0777);
}

NewFile::~NewFile()
{
    discard();
}

void NewFile::discard()
{
    if (temporary.empty()) return;
    ::unlink(temporary.c_str());
    temporary.clear();
}

/// Also where nothing is yet: the file is made there.
fs::path NewFile::behindLinks() const
{
    constexpr int mostLinks = 40; // as the kernel has it
    std::error_code fault;
    // The process may change its folder before the file has its name.
    fs::path end = fs::absolute(name, fault);
    for (int links = 0; fs::is_symlink(fs::symlink_status(end, fault)); ++links) {
        if (links == mostLinks) fail(ELOOP);
        end = end.parent_path() / fs::read_symlink(end, fault);
        if (fault) fail(fault.value());
    }
    return end;
}

/// @param isPrivate  nobody else may read the new content where the old one is private, not even for a moment
void NewFile::open(bool isPrivate)
{
    constexpr int flags = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC;
    do {
        auto candidate = temporaryIn(target.parent_path());
        file = Descriptor(::open(candidate.c_str(), flags, isPrivate ? S_IRUSR | S_IWUSR : 0666));
        if (file.isOpen()) temporary = std::move(candidate);
    } while (!file.isOpen() && errno == EEXIST); // left by a process that had the same number
    if (!file.isOpen()) fail(errno);
}

void NewFile::keep()
{
    if (::fsync(descriptor()) != 0 || std::rename(temporary.c_str(), target.c_str()) != 0) fail(errno);
    temporary.clear();
    syncFolder();
}

/// The name lasts only once the folder does. Some folders cannot be opened, and some file systems sync none.
void NewFile::syncFolder() const
{
    const Descriptor folder(::open(target.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!folder.isOpen() && errno == EACCES) return;
    if (!folder.isOpen() || (::fsync(folder.get()) != 0 && errno != EINVAL)) fail(errno);
}

void NewFile::fail(int error) const
{
    throw std::system_error(error, std::generic_category(), name.string());
}

} // namespace connector::host::detail
