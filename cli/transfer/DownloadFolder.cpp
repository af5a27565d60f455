#include "cli/transfer/DownloadFolder.h"

#include "cli/machine/SystemError.h"
#include "cli/terminal/Failure.h"
#include "cli/terminal/Interrupts.h"
#include "cli/terminal/Text.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>

namespace tarncli {

namespace {

namespace fs = std::filesystem;

constexpr int folderFlags = O_RDONLY | O_DIRECTORY | O_CLOEXEC;

void requireName(const std::string& name)
{
    if (name.empty() || name == "." || name == ".." || name.find('/') != std::string::npos ||
        name.find('\0') != std::string::npos)
        throw Failure(ExitCode::failure, "The service named an item \"" + escaped(name) +
                                             "\", which cannot be the name of a file here.");
}

Failure exists(const std::string& shown)
{
    return {ExitCode::conflict, escaped(shown) + " exists already; use --force to replace it."};
}

/// In the same folder, since a file cannot be renamed from one file system to another.
std::string temporaryName()
{
    static std::atomic<unsigned> counter{0};
    return ".tarn-" + std::to_string(getpid()) + "-" + std::to_string(++counter) + ".part";
}

/// A file that vanishes with this object unless it was given its final name.
class TemporaryFile {
public:
    TemporaryFile(int folderFd, const fs::path& shownPath)
        : folder(folderFd), shown(shownPath), name(temporaryName()), guard([this] { remove(); })
    {
        file = FileDescriptor(::openat(folder, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
        if (!file) throwErrno("Could not write", shown);
    }

    ~TemporaryFile() { remove(); }

    void write(std::string_view content)
    {
        while (!content.empty()) {
            const auto count = ::write(file.get(), content.data(), content.size());
            if (count < 0 && errno == EINTR) continue;
            if (count < 0) throwErrno("Could not write", shown);
            content.remove_prefix(static_cast<std::size_t>(count));
        }
        // Before the name: a power cut must not leave a name on an empty file.
        if (::fsync(file.get()) != 0) throwErrno("Could not write", shown);
    }

    void rename(const std::string& target, Overwrite overwrite)
    {
        const unsigned flags = overwrite == Overwrite::refuse ? RENAME_NOREPLACE : 0;
        int result = ::renameat2(folder, name.c_str(), folder, target.c_str(), flags);
        // Some file systems know no flags; the name was free a moment ago.
        if (result != 0 && errno == EINVAL && flags != 0 && !taken(target))
            result = ::renameat(folder, name.c_str(), folder, target.c_str());
        if (result != 0 && errno == EEXIST) throw exists(shown.string());
        // The new name lasts only once the folder does.
        if (result != 0 || ::fsync(folder) != 0) throwErrno("Could not write", shown);
    }

private:
    bool taken(const std::string& target) const
    {
        struct stat status {};

        const bool found = ::fstatat(folder, target.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
        if (found) errno = EEXIST;
        return found;
    }

    void remove() const { ::unlinkat(folder, name.c_str(), 0); }

    int folder;
    fs::path shown;
    std::string name;
    InterruptGuard guard; // before the file exists, so that there is no moment in which it is forgotten
    FileDescriptor file;
};

} // namespace

std::shared_ptr<const DownloadFolder> DownloadFolder::open(const fs::path& path)
{
    auto folder = std::make_shared<DownloadFolder>();
    folder->path = path.empty() ? "." : path;
    if (!folder->descriptor()) throwErrno("Could not open the folder", path);
    return folder;
}

std::shared_ptr<const DownloadFolder> DownloadFolder::make(const fs::path& path)
{
    if (::mkdir(path.c_str(), 0777) != 0 && errno != EEXIST) throwErrno("Could not make the folder", path);
    return open(path);
}

/// Opened for each use: a tree may have more folders than a process may have descriptors. Name by name and without
/// following links, since a folder may be swapped for a link while files arrive.
FileDescriptor DownloadFolder::descriptor() const
{
    if (!parent) return FileDescriptor(::open(path.c_str(), folderFlags));
    const auto above = parent->descriptor();
    return FileDescriptor(::openat(above.get(), ownName.c_str(), folderFlags | O_NOFOLLOW));
}

std::shared_ptr<const DownloadFolder> DownloadFolder::makeChild(const std::string& name) const
{
    requireName(name);
    const auto here = descriptor();
    auto child = std::make_shared<DownloadFolder>();
    child->parent = shared_from_this();
    child->path = path / name;
    child->ownName = name;
    if (::mkdirat(here.get(), name.c_str(), 0777) != 0 && errno != EEXIST)
        throwErrno("Could not make the folder", child->path);
    if (!child->descriptor()) throwErrno("Could not open the folder", child->path);
    return child;
}

bool DownloadFolder::contains(const std::string& name) const
{
    requireName(name);

    struct stat status {};

    return ::fstatat(descriptor().get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
}

void DownloadFolder::store(const std::string& name, std::string_view content, Overwrite overwrite) const
{
    if (contains(name) && overwrite == Overwrite::refuse) throw exists(shown(name));
    const auto here = descriptor();
    if (!here) throwErrno("Could not open the folder", path);
    TemporaryFile file(here.get(), path / name);
    file.write(content);
    file.rename(name, overwrite);
}

std::string DownloadFolder::shown(const std::string& name) const
{
    return path == "." ? name : (path / name).string();
}

} // namespace tarncli
