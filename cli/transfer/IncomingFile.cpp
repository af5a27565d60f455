#include "cli/transfer/IncomingFile.h"

#include "cli/machine/SystemError.h"
#include "cli/terminal/Failure.h"
#include "cli/terminal/Text.h"
#include "tarnhost/FileSink.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>

namespace tarncli {

namespace {

using connector::common::DataBuffer;
using connector::host::FileSink;
namespace fs = std::filesystem;

constexpr const char* partEnding = ".tarn-part";
constexpr const char* versionEnding = "-version";

std::string machineName()
{
    std::array<char, 65> machine{}; // the longest name there is, and a zero
    [[maybe_unused]] const auto told = ::gethostname(machine.data(), machine.size() - 1);
    return machine.data();
}

/// Tells this machine's from others in a folder that several share.
const std::string& temporaryStart()
{
    static const std::string start = ".tarn-" + machineName() + "-";
    return start;
}

/// In the same folder, since a file cannot be renamed from one file system to another.
std::string temporaryName()
{
    static std::atomic<unsigned> counter{0};
    return temporaryStart() + std::to_string(getpid()) + "-" + std::to_string(++counter) + ".part";
}

/// A temporary file of a process of this machine that is no more, or had the number of this one: in a container that
/// may be the same each time.
bool isOfTheDead(std::string_view name)
{
    const auto start = temporaryStart();
    if (!name.starts_with(start) || !name.ends_with(".part")) return false;
    name.remove_prefix(start.size());
    pid_t process = 0;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), process);
    if (error != std::errc() || process <= 0 || *end != '-') return false;
    return process == getpid() || (::kill(process, 0) != 0 && errno == ESRCH);
}

/// Unless it is being written: a container on this machine has processes of its own.
void removeUnlocked(int folder, const char* name)
{
    const FileDescriptor file(::openat(folder, name, O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (file && ::flock(file.get(), LOCK_EX | LOCK_NB) == 0) ::unlinkat(folder, name, 0);
}

/// Beside the part, what it is a part of.
std::string versionName(const std::string& part)
{
    return part + versionEnding;
}

/// Other characters are none of an id: after a power cut there may be zeros.
bool isPrintable(std::string_view id)
{
    return std::ranges::all_of(id, [](char c) { return c > ' ' && c <= '~'; });
}

/// A name that has no room for more cannot be kept under another.
Unfinished possible(Unfinished wanted, const std::string& target)
{
    return versionName(partName(target)).size() <= NAME_MAX ? wanted : Unfinished::remove;
}

} // namespace

std::string partName(const std::string& target)
{
    return "." + target + partEnding;
}

bool isIncoming(std::string_view name)
{
    return name.starts_with('.') &&
           ((name.starts_with(".tarn-") && name.ends_with(".part")) || name.ends_with(partEnding) ||
            name.ends_with(std::string(partEnding) + versionEnding));
}

void removeAbandoned(int folder)
{
    // A position of its own in the listing.
    const int again = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::unique_ptr<DIR, int (*)(DIR*)> listing(again < 0 ? nullptr : ::fdopendir(again), &::closedir);
    if (!listing) return;
    while (const auto* entry = ::readdir(listing.get()))
        if (isOfTheDead(entry->d_name)) removeUnlocked(folder, entry->d_name);
}

/// Counts, and knows when it is too much.
class IncomingFile::Sink : public FileSink {
public:
    Sink(int descriptor, MovedBytes counter, std::shared_ptr<const IncomingFile> target)
        : FileSink(descriptor, {.keepHoles = true}), moved(std::move(counter)), incoming(std::move(target))
    {
    }

    void onSubscribe(std::weak_ptr<connector::reactive_streams::Subscription> offered) override
    {
        end = incoming->held();
        FileSink::onSubscribe(std::move(offered));
    }

    void onNext(DataBuffer&& item) override
    {
        const auto bytes = item.size;
        incoming->requireRoomTo(end += bytes);
        FileSink::onNext(std::move(item));
        *moved += bytes;
    }

private:
    std::uint64_t end = 0; ///< of what has come; the file may be behind
    MovedBytes moved;
    std::shared_ptr<const IncomingFile> incoming;
};

IncomingFile::IncomingFile(std::shared_ptr<const FileDescriptor> into, std::string finalName,
                           std::string shownPath, Unfinished whenUnfinished, MovedBytes movedBytes)
    : folder(std::move(into))
    , target(std::move(finalName))
    , shown(std::move(shownPath))
    , unfinished(possible(whenUnfinished, target))
    , moved(std::move(movedBytes))
{
    const auto before = replaced();
    // Nobody may read more of the new content than of the old, not even for a moment.
    const mode_t mode = before ? S_IRUSR | S_IWUSR : 0666;
    unfinished == Unfinished::keep ? openPart(mode) : openTemporary(mode);
    if (before) takeAfter(*before, S_IRUSR | S_IWUSR); // a later command may have to go on with it
}

IncomingFile::~IncomingFile()
{
    leave();
}

void IncomingFile::openTemporary(mode_t mode)
{
    constexpr int flags = O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC;
    do {
        guard.reset(); // it reads the name
        name = temporaryName();
        guard.emplace([this] { leave(); });
        file = FileDescriptor(::openat(folder->get(), name.c_str(), flags, mode));
    } while (!file && errno == EEXIST); // left by a process that had the number of this one
    if (!file) throwErrno("Could not write", shown);
    ::flock(file.get(), LOCK_EX | LOCK_NB); // tells others that it is on its way, where there are locks
}

void IncomingFile::openPart(mode_t mode)
{
    constexpr int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK;
    name = partName(target);
    guard.emplace([this] { leave(); });
    do {
        requirePlaceOfPart();
        file = FileDescriptor(::openat(folder->get(), name.c_str(), flags, mode));
        if (!file) throwErrno("Could not write", shownPart());
        // Some file systems know no locks.
        if (::flock(file.get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
            file.reset(); // it is the other's: nothing of it may be touched
            throw Failure(ExitCode::conflict, escaped(shown) + " is being fetched by another command.");
        }
    } while (!isStillNamed()); // the other has just given it its final name
    const auto size = ::lseek(file.get(), 0, SEEK_END);
    if (size < 0) throwErrno("Could not read", shown);
    readVersion();
    *moved += static_cast<std::uint64_t>(size);
}

/// What the file takes the place of, when that is a file itself.
std::optional<struct stat> IncomingFile::replaced() const
{
    struct stat status {};

    if (::fstatat(folder->get(), target.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISREG(status.st_mode))
        return {};
    return status;
}

/// Some file systems know no owners or modes.
void IncomingFile::takeAfter(const struct stat& before, mode_t andMore) const
{
    [[maybe_unused]] const auto owned = ::fchown(file.get(), before.st_uid, before.st_gid);
    ::fchmod(file.get(), (before.st_mode & 0777) | andMore);
}

/// Discarded or not.
bool IncomingFile::isPart() const
{
    return name == partName(target);
}

fs::path IncomingFile::shownPart() const
{
    return fs::path(shown).parent_path() / name;
}

void IncomingFile::requirePlaceOfPart() const
{
    struct stat there {};

    const bool isTaken = ::fstatat(folder->get(), name.c_str(), &there, AT_SYMLINK_NOFOLLOW) == 0;
    if (isTaken && !S_ISREG(there.st_mode))
        throw Failure(ExitCode::conflict,
                      "Could not write " + escaped(shownPart().string()) + ": it is not a file.");
}

bool IncomingFile::isStillNamed() const
{
    struct stat opened {};

    struct stat named {};

    if (::fstat(file.get(), &opened) != 0) throwErrno("Could not write", shown);
    return ::fstatat(folder->get(), name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
           named.st_dev == opened.st_dev && named.st_ino == opened.st_ino;
}

/// What cannot be read is an unknown version, and the file begins anew.
void IncomingFile::readVersion()
{
    const FileDescriptor kept(
        ::openat(folder->get(), versionName(name).c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    std::array<char, 256> text;
    const auto count = kept ? ::read(kept.get(), text.data(), text.size()) : 0;
    const std::string_view id(text.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    if (isPrintable(id)) versionId = id;
}

/// The content is new by then, or was of this version before: the two never disagree in a way that the service and
/// the digest would not find.
void IncomingFile::setVersion(const std::string& id)
{
    if (id == versionId) return;
    versionId = id;
    if (!isPart()) return;
    const FileDescriptor kept(::openat(folder->get(), versionName(name).c_str(),
                                       O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK,
                                       0666));
    if (!kept || ::write(kept.get(), id.data(), id.size()) != static_cast<ssize_t>(id.size()))
        throwErrno("Could not write", versionName(shownPart().string()));
}

/// The position rather than the size: behind the last byte there may be a hole.
std::uint64_t IncomingFile::held() const
{
    const auto position = ::lseek(file.get(), 0, SEEK_CUR);
    if (position < 0) throwErrno("Could not write", shown);
    return static_cast<std::uint64_t>(position);
}

/// What this command has fetched need not be read again.
std::shared_ptr<connector::tarn::Sha256> IncomingFile::hash()
{
    const auto end = held();
    if (!running || running->bytes() != end)
        running = std::make_shared<connector::tarn::Sha256>(hashUpTo(static_cast<off_t>(end)));
    return running;
}

connector::tarn::Sha256 IncomingFile::hashUpTo(off_t end) const
{
    connector::tarn::Sha256 hash;
    if (end > 0) fillLastHole();
    std::array<char, 64 * 1024> buffer;
    for (off_t done = 0; done < end;) {
        const auto count = ::pread(file.get(), buffer.data(), buffer.size(), done);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) throwErrno("Could not read", shown);
        hash.add({buffer.data(), static_cast<std::size_t>(count)});
        done += count;
    }
    return hash;
}

void IncomingFile::startOver(const std::string& why)
{
    *moved -= held();
    reasonAnew = why + "; all of it was fetched anew.";
    if (::ftruncate(file.get(), 0) != 0 || ::lseek(file.get(), 0, SEEK_SET) != 0)
        throwErrno("Could not write", shown);
}

connector::tarn::ContentSubscriber IncomingFile::subscriber()
{
    return std::make_shared<Sink>(file.get(), moved, shared_from_this());
}

std::string IncomingFile::toldDigest(connector::Future<std::string>&& received) const
{
    try {
        return received.get();
    } catch (const std::system_error& error) {
        errno = error.code().value();
        throwErrno("Could not write", shown);
    }
}

void IncomingFile::commit(Overwrite overwrite, std::uint64_t milliseconds)
{
    if (milliseconds > 0) {
        const timespec times[] = {
            {0, UTIME_OMIT},
            {static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1'000'000}};
        if (::futimens(file.get(), times) != 0) throwErrno("Could not set the time of", shown);
    }
    if (const auto before = replaced()) takeAfter(*before, 0);
    // A part's name is one that others know.
    if (isPart() && !isStillNamed())
        throw Failure(ExitCode::conflict,
                      escaped(shownPart().string()) + " is no longer what was fetched; fetch it again.");
    // Before the name: a power cut must not leave a name on an empty file.
    if (::fsync(file.get()) != 0) throwErrno("Could not write", shown);
    rename(overwrite);
    committed = true;
    if (isPart())
        ::unlinkat(folder->get(), versionName(name).c_str(), 0);
    else
        removeOlderPart();
    // The new name lasts only once the folder does. Some file systems cannot be asked for that.
    if (::fsync(folder->get()) != 0 && errno != EINVAL) throwErrno("Could not write", shown);
}

void IncomingFile::rename(Overwrite overwrite) const
{
    const unsigned flags = overwrite == Overwrite::refuse ? RENAME_NOREPLACE : 0;
    int result = ::renameat2(folder->get(), name.c_str(), folder->get(), target.c_str(), flags);
    // Some file systems know no flags; the name was free a moment ago.
    if (result != 0 && errno == EINVAL && flags != 0 && !isTaken(target))
        result = ::renameat(folder->get(), name.c_str(), folder->get(), target.c_str());
    if (result != 0 && errno == EEXIST)
        throw Failure(ExitCode::conflict, escaped(shown) + " exists already; use --force to replace it.");
    if (result != 0) throwErrno("Could not write", shown);
}

/// What an earlier command was to go on with, unless another one is just doing that.
void IncomingFile::removeOlderPart() const
{
    const auto part = partName(target);
    const FileDescriptor older(
        ::openat(folder->get(), part.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!older || ::flock(older.get(), LOCK_EX | LOCK_NB) != 0) return;
    ::unlinkat(folder->get(), part.c_str(), 0);
    ::unlinkat(folder->get(), versionName(part).c_str(), 0);
}

bool IncomingFile::isTaken(const std::string& other) const
{
    struct stat status {};

    const bool found = ::fstatat(folder->get(), other.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    if (found) errno = EEXIST;
    return found;
}

/// One byte rather than a new size: what is being written behind it at this moment must not be cut off.
void IncomingFile::fillLastHole() const
{
    struct stat status {};

    const auto end = ::lseek(file.get(), 0, SEEK_CUR);
    if (::fstat(file.get(), &status) != 0 || end <= status.st_size) return;
    [[maybe_unused]] const auto count =
        ::pwrite(file.get(), "", 1, end - 1); // without it, more is fetched again
}

void IncomingFile::leave() const
{
    if (committed) return;
    if (unfinished == Unfinished::keep && (!file || ::lseek(file.get(), 0, SEEK_CUR) > 0))
        return fillLastHole();
    ::unlinkat(folder->get(), name.c_str(), 0);
    if (isPart()) ::unlinkat(folder->get(), versionName(name).c_str(), 0);
}

} // namespace tarncli
