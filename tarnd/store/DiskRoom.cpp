#include "tarnd/store/DiskRoom.h"

#include "tarnd/store/FileSystem.h"
#include "tarnd/store/UniqueFd.h"

#include <fcntl.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <limits>

namespace tarnd {

DiskRoom::DiskRoom(std::filesystem::path folder, std::uint64_t keepFree)
    : folder(std::move(folder)), reserve(this->folder / "reserve"), keepFree(keepFree)
{
}

DiskRoom::Claim::Claim(Claim&& other) noexcept
    : room(std::exchange(other.room, nullptr)), left(std::exchange(other.left, 0))
{
}

DiskRoom::Claim::~Claim()
{
    if (room) room->claimed -= left;
}

/// In steps, because asking the disk costs more than writing a piece.
void DiskRoom::Claim::extendTo(std::uint64_t bytes)
{
    constexpr std::uint64_t step = 1 << 20;
    if (!room || left >= bytes) return;
    const auto more = std::max(step, bytes - left);
    room->promise(more);
    left += more;
}

void DiskRoom::Claim::use(std::uint64_t bytes) noexcept
{
    bytes = std::min(bytes, left);
    left -= bytes;
    if (room) room->claimed -= bytes;
}

/// A disk that does not tell its room refuses when a write fails, as all disks do in the end.
std::uint64_t DiskRoom::freeBytes() const noexcept
{
    struct statvfs disk = {};
    if (::statvfs(folder.c_str(), &disk) != 0) return std::numeric_limits<std::uint64_t>::max();
    return std::uint64_t{disk.f_bavail} * disk.f_frsize;
}

DiskRoom::Claim DiskRoom::claim(std::uint64_t bytes)
{
    takeReserve();
    promise(bytes);
    return {*this, bytes};
}

/// Claims count with the bytes on the disk: two uploads that fit one by one may not fit together.
void DiskRoom::promise(std::uint64_t bytes)
{
    const std::lock_guard lock(mutex);
    const auto free = freeBytes();
    const auto taken = claimed.load();
    if (free < taken || free - taken < bytes || free - taken - bytes < keepFree)
        throw sentences::storageFull.because("an upload of " + std::to_string(bytes) +
                                             " bytes: " + std::to_string(free) + " are free");
    claimed += bytes;
}

void DiskRoom::takeReserve() noexcept
{
    const auto size = keepFree / 4;
    const std::lock_guard lock(mutex);
    if (size == 0 || ::access(reserve.c_str(), F_OK) == 0 || freeBytes() < keepFree + size) return;
    const UniqueFd file(::open(reserve.c_str(), O_CREAT | O_RDWR | O_CLOEXEC, 0600));
    // Allocated, not only long: a file of holes would hold no room.
    if (!file || ::posix_fallocate(file.get(), 0, static_cast<off_t>(size)) != 0) ::unlink(reserve.c_str());
}

bool DiskRoom::giveReserve() noexcept
{
    const std::lock_guard lock(mutex);
    return freeBytes() < keepFree / 4 && ::unlink(reserve.c_str()) == 0;
}

} // namespace tarnd
