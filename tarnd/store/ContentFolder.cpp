#include "tarnd/store/ContentFolder.h"

#include "tarnd/store/DataDirectory.h"
#include "tarnd/store/FileContentWriter.h"
#include "tarnd/store/FileSystem.h"
#include "tarnd/store/RemovalTurn.h"
#include "tarnd/store/Secrets.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace tarnd {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t ownNameBytes = 16;

/// What else lies beside them, such as lost+found, may not even be looked into.
bool isShard(const fs::path& entry)
{
    const std::string name = entry.filename();
    return name.size() == 2 && name.find_first_not_of("0123456789abcdef") == std::string::npos;
}

std::vector<fs::path> entries(const fs::path& folder)
{
    std::error_code error;
    std::vector<fs::path> found;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error))
        found.push_back(at->path());
    if (error) throw sentences::internal.because(folder.string() + ": " + error.message());
    return found;
}

} // namespace

ContentFolder::ContentFolder(fs::path theDataDir, DiskRoom& room, WriteListener listener)
    : Contents(std::move(listener))
    , dataDir(std::move(theDataDir))
    , contents(dataDir / "contents")
    , uploads(dataDir / "uploads")
    , room(room)
    , remover([this](const auto& ids, bool lastTry) { return remove(ids, lastTry); })
{
    bool made = makeFolder(uploads);
    made = makeFolder(contents) || made;
    static constexpr char digits[] = "0123456789abcdef";
    bool shardMade = false;
    for (const char high : std::string_view(digits))
        for (const char low : std::string_view(digits))
            shardMade = makeFolder(contents / std::string{high, low}) || shardMade;
    // From the leaves up: once a content is acknowledged, no folder on its path may be lost with the power.
    if (shardMade) syncFolder(contents);
    if (made) syncFolder(dataDir);
}

ContentFolder::~ContentFolder()
{
    std::error_code ignored; // what stays is removed by the next start
    if (ownLock) fs::remove_all(ownFolder, ignored);
}

fs::path ContentFolder::contentPath(const std::string& id) const
{
    // Put together as text: a path is taken apart each time that it grows, which every request would pay for.
    std::string path = contents.native();
    return path.append("/").append(id, 0, 2).append("/").append(id);
}

/// A starting process may take a folder that is not locked yet for a dead one's and remove it: so look again.
fs::path ContentFolder::ownUploads()
{
    const std::lock_guard lock(ownMutex);
    while (!ownLock) {
        ownFolder = uploads / randomHex(ownNameBytes);
        makeFolder(ownFolder);
        UniqueFd file(::open((ownFolder / "lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
        if (!file && errno == ENOENT) continue;
        if (!file || ::flock(file.get(), LOCK_EX) != 0) throw systemError(ownFolder);
        struct stat held = {}, named = {};
        ::fstat(file.get(), &held);
        if (::stat((ownFolder / "lock").c_str(), &named) == 0 && named.st_ino == held.st_ino)
            ownLock = std::move(file);
    }
    return ownFolder;
}

void ContentFolder::join(Database& database, const DataDirectory& directory)
{
    directory.join(database, *this);
}

ContentBytes ContentFolder::open(const std::string& id) const
{
    UniqueFd file(::open(contentPath(id).c_str(), O_RDONLY | O_CLOEXEC));
    if (!file && errno != ENOENT) throw systemError(contentPath(id));
    return {.file = std::move(file)};
}

std::unique_ptr<ContentWriter> ContentFolder::write(std::optional<std::uint64_t>)
{
    return std::make_unique<FileContentWriter>(*this);
}

bool ContentFolder::has(const std::string& id) const
{
    const auto path = contentPath(id);
    if (::access(path.c_str(), F_OK) == 0) return true;
    if (errno != ENOENT) throw systemError(path);
    return false;
}

std::string ContentFolder::whyNotWritable()
{
    try {
        const auto probe = ownUploads() / "probe";
        const UniqueFd file(::open(probe.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
        if (!file)
            return "The data directory cannot be written to: " + std::generic_category().message(errno) + ".";
        ::unlink(probe.c_str());
        return room.isScarce() ? "The disk is full: uploads are refused." : "";
    } catch (const ServiceError& error) {
        return error.what();
    }
}

void ContentFolder::drop(const std::vector<std::string>& ids)
{
    remover.add(ids);
}

/// What stays is an orphan, which the next start removes.
bool ContentFolder::remove(const std::vector<std::string>& ids, bool lastTry)
{
    const RemovalTurn turn(dataDir, RemovalTurn::For::removing,
                           std::chrono::milliseconds(lastTry ? 2000 : 100));
    for (const auto& id : ids)
        if (turn) ::unlink(contentPath(id).c_str());
    return bool(turn);
}

void ContentFolder::dropNow(const std::vector<std::string>& ids) noexcept
{
    const RemovalTurn turn(dataDir, RemovalTurn::For::removing, std::chrono::seconds(30));
    for (const auto& id : ids)
        if (turn) ::unlink(contentPath(id).c_str());
}

std::vector<std::string> ContentFolder::ids(const std::string& beginning) const
{
    std::vector<std::string> found;
    for (const auto& shard : entries(contents)) {
        if (!isShard(shard)) continue;
        for (const auto& content : entries(shard))
            if (const std::string name = content.filename(); isId(name) && name.starts_with(beginning))
                found.push_back(name);
    }
    std::sort(found.begin(), found.end());
    return found;
}

std::vector<std::string> ContentFolder::strangers() const
{
    std::vector<std::string> found;
    for (const auto& shard : entries(contents)) {
        if (!isShard(shard)) {
            found.push_back(shard.filename());
            continue;
        }
        for (const auto& content : entries(shard))
            if (!isId(content.filename()) || content.filename().string().substr(0, 2) != shard.filename())
                found.push_back(shard.filename() / content.filename());
    }
    return found;
}

bool ContentFolder::isBeingWritten(const std::string& id) const
{
    const auto folders = entries(uploads);
    return std::any_of(folders.begin(), folders.end(),
                       [&](const auto& folder) { return fs::exists(folder / id); });
}

std::size_t ContentFolder::dropAbandonedUploads()
{
    std::size_t dropped = 0;
    for (const auto& folder : entries(uploads)) {
        // O_CREAT, because its owner may have died between making the folder and making the lock.
        UniqueFd file(::open((folder / "lock").c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
        if (!file || ::flock(file.get(), LOCK_EX | LOCK_NB) != 0) continue; // alive
        std::error_code ignored;
        const auto removed = fs::remove_all(folder, ignored);
        constexpr std::uintmax_t folderAndLock = 2;
        if (removed > folderAndLock && removed != static_cast<std::uintmax_t>(-1))
            dropped += static_cast<std::size_t>(removed - folderAndLock);
    }
    return dropped;
}

} // namespace tarnd
