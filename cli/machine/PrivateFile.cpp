#include "cli/machine/PrivateFile.h"

#include "cli/machine/FileDescriptor.h"
#include "cli/machine/FileText.h"
#include "cli/machine/SystemError.h"
#include "cli/terminal/Failure.h"
#include "cli/terminal/Text.h"

#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>

namespace tarncli {

namespace fs = std::filesystem;

namespace {

void writeAll(int fd, const std::string& text, const fs::path& file)
{
    for (std::size_t done = 0; done < text.size();) {
        const auto count = ::write(fd, text.data() + done, text.size() - done);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) throwErrno("Could not write", file);
        done += static_cast<std::size_t>(count);
    }
}

void syncFolder(const fs::path& folder)
{
    const FileDescriptor fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // Some file systems cannot be asked for that.
    if (!fd || (::fsync(fd.get()) != 0 && errno != EINVAL)) throwErrno("Could not write", folder);
}

/// FNV-1a: tells apart the names that look alike once their special characters are gone.
std::string hashOf(const std::string& text)
{
    std::uint64_t hash = 0xcbf29ce484222325;
    for (const char c : text)
        hash = (hash ^ static_cast<unsigned char>(c)) * 0x100000001b3;
    char buffer[20];
    std::snprintf(buffer, sizeof buffer, "%016jx", std::uintmax_t{hash});
    return buffer;
}

} // namespace

std::string privateFileName(const std::string& text)
{
    std::string readable;
    for (const char c : text.substr(0, 80)) // a file name ends at 255 bytes, an endpoint need not
        readable += std::isalnum(static_cast<unsigned char>(c)) != 0 ? c : '-';
    return readable + "-" + hashOf(text);
}

void makePrivateFolder(const fs::path& folder)
{
    if (fs::is_directory(folder)) return;
    if (folder.has_parent_path() && folder.parent_path() != folder) makePrivateFolder(folder.parent_path());
    // EEXIST: another command was faster.
    if (::mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST)
        throwErrno("Could not make the folder", folder);
}

void requireReplaceable(const fs::path& file)
{
    std::error_code missing;
    const auto there = fs::status(file, missing);
    if (fs::exists(there) && !fs::is_regular_file(there) && !fs::is_directory(there))
        throw Failure(ExitCode::conflict, "Could not write " + escaped(file.string()) +
                                              ": it is a device, a pipe or a socket. Name a file.");
}

void writePrivateFile(const fs::path& file, const std::string& text)
{
    requireReplaceable(file);
    makePrivateFolder(file.parent_path());
    auto temporary = file.string() + ".XXXXXX";
    FileDescriptor fd(::mkostemp(temporary.data(), O_CLOEXEC)); // mode 0600
    if (!fd) throwErrno("Could not write", file);
    try {
        writeAll(fd.get(), text, file);
        // Before the rename: a power loss could otherwise leave the name on an empty file.
        if (::fsync(fd.get()) != 0) throwErrno("Could not write", file);
        if (::rename(temporary.c_str(), file.c_str()) != 0) throwErrno("Could not write", file);
    } catch (const Failure&) {
        ::unlink(temporary.c_str());
        throw;
    }
    // The rename itself is durable only with its folder.
    syncFolder(file.parent_path());
}

std::optional<std::string> readPrivateFile(const fs::path& file)
{
    const FileDescriptor fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd && (errno == ENOENT || errno == ENOTDIR)) return {};

    struct stat status {};

    if (!fd || ::fstat(fd.get(), &status) != 0) throwErrno("Could not read", file);
    // What others could read counts as known to them, until its owner has looked.
    if ((status.st_mode & 077) != 0)
        throw Failure(ExitCode::failure, "Other users can read " + escaped(file.string()) +
                                             "; delete it and log in again, or `chmod 600` it.");
    return readToEnd(fd.get(), file);
}

} // namespace tarncli
