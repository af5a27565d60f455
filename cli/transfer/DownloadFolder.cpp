#include "cli/transfer/DownloadFolder.h"

#include "cli/machine/SystemError.h"
#include "cli/terminal/Failure.h"
#include "cli/terminal/Text.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <utility>

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

/// Kind and permissions of what is there; 0: nothing is. @throws Failure when that cannot be told
mode_t modeOf(const FileDescriptor& folder, const std::string& name, const std::string& shown)
{
    struct stat status {};

    if (::fstatat(folder.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) return status.st_mode;
    if (errno != ENOENT) throwErrno("Could not look at", shown);
    return 0;
}

} // namespace

std::shared_ptr<DownloadFolder> DownloadFolder::opened(const fs::path& path)
{
    auto folder = std::make_shared<DownloadFolder>();
    folder->path = path.empty() ? "." : path;
    if (folder->path != ".") folder->shownStart = (folder->path / "").string();
    removeAbandoned(folder->descriptor()->get());
    return folder;
}

std::shared_ptr<const DownloadFolder> DownloadFolder::open(const fs::path& path)
{
    return opened(path);
}

std::shared_ptr<const DownloadFolder> DownloadFolder::make(const fs::path& path)
{
    const bool isNew = ::mkdir(path.c_str(), 0777) == 0;
    if (!isNew && errno != EEXIST) throwErrno("Could not make the folder", path);
    auto folder = opened(path);
    folder->made = isNew;
    return folder;
}

/// Open for as long as files are on their way into it: a tree may have more folders than a process may have descriptors.
/// Name by name and without following links, since a folder may be swapped for a link while files arrive.
std::shared_ptr<const FileDescriptor> DownloadFolder::descriptor() const
{
    const std::lock_guard lock(mutex);
    if (auto held = inUse.lock()) return held;
    FileDescriptor opened(
        parent ? ::openat(parent->descriptor()->get(), ownName.c_str(), folderFlags | O_NOFOLLOW)
               : ::open(path.c_str(), folderFlags));
    if (!opened) throwErrno("Could not open the folder", path);
    auto fresh = std::make_shared<const FileDescriptor>(std::move(opened));
    inUse = fresh;
    return fresh;
}

std::shared_ptr<const DownloadFolder> DownloadFolder::makeChild(const std::string& name) const
{
    requireName(name);
    const auto here = descriptor();
    auto child = std::make_shared<DownloadFolder>();
    child->parent = shared_from_this();
    child->path = path / name;
    child->shownStart = shownStart + name + "/";
    child->ownName = name;
    child->made = ::mkdirat(here->get(), name.c_str(), 0777) == 0;
    if (!child->made && errno != EEXIST) throwErrno("Could not make the folder", child->path);
    const auto opened = child->descriptor();
    if (!child->made) removeAbandoned(opened->get());
    return child;
}

bool DownloadFolder::contains(const std::string& name) const
{
    requireName(name);
    return modeOf(*descriptor(), name, shown(name)) != 0;
}

std::optional<LocalContent> DownloadFolder::find(const std::string& name) const
{
    try {
        requireName(name);
        constexpr int flags = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
        const auto here = descriptor();
        FileDescriptor file(::openat(here->get(), name.c_str(), flags));
        if (!file) return {}; // as nearly always; an exception would cost more than the file
        return LocalContent::ofOpened(std::move(file), shown(name));
    } catch (const Failure&) { // whoever writes it in its turn is told why that cannot be
        return {};
    }
}

std::shared_ptr<IncomingFile> DownloadFolder::receive(const std::string& name, Overwrite overwrite,
                                                      Unfinished unfinished, const MovedBytes& moved) const
{
    requireName(name);
    auto here = descriptor();
    const auto mode = modeOf(*here, name, shown(name));
    if (overwrite == Overwrite::refuse && mode != 0)
        throw Failure(ExitCode::conflict,
                      escaped(shown(name)) + " exists already; use --force to replace it.");
    // A device or a pipe in whose place a file came would be missed by others.
    if (mode != 0 && !S_ISREG(mode) && !S_ISLNK(mode) && !S_ISDIR(mode))
        throw Failure(ExitCode::conflict,
                      escaped(shown(name)) +
                          " is not a file, and is left as it is; `tarn cat` writes to it.");
    return std::make_shared<IncomingFile>(std::move(here), name, shown(name), unfinished, moved);
}

void DownloadFolder::remove(const std::string& name, bool isFolder) const
{
    requireName(name);
    if (::unlinkat(descriptor()->get(), name.c_str(), isFolder ? AT_REMOVEDIR : 0) != 0)
        throwErrno("Could not delete", path / name);
}

std::string DownloadFolder::shown(const std::string& name) const
{
    return shownStart + name;
}

} // namespace tarncli
