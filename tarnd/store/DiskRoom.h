#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <mutex>

namespace tarnd {

/// What is left of the disk that a folder is on. All calls may run on any thread.
///
/// Uploads are refused while others can still be served: `keepFree` bytes stay for what makes room. A quarter
/// of them is held in the file "reserve", so that it is there even when another program fills the disk.
class DiskRoom {
public:
    /// @param keepFree bytes; 0 keeps nothing
    DiskRoom(std::filesystem::path folder, std::uint64_t keepFree);

    /// Room promised to one upload; what it has not used is free again in the end.
    class Claim {
    public:
        Claim() = default;

        Claim(DiskRoom& room, std::uint64_t bytes) : room(&room), left(bytes) {}

        Claim(Claim&& other) noexcept;
        Claim& operator=(Claim&&) = delete;
        ~Claim();

        /// At least so many bytes are promised when this returns. @throws as DiskRoom::claim
        void extendTo(std::uint64_t bytes);

        /// So many bytes more have been written.
        void use(std::uint64_t bytes) noexcept;

    private:
        DiskRoom* room = nullptr;
        std::uint64_t left = 0;
    };

    /// @throws ServiceError insufficientStorage when the bytes would leave less than `keepFree`
    Claim claim(std::uint64_t bytes);

    /// Not even an empty upload is taken.
    bool isScarce() const noexcept { return freeBytes() < keepFree; }

    /// Bytes that this process could still write, what it keeps free included.
    std::uint64_t freeBytes() const noexcept;

    /// Takes the reserve from the disk, if it is not there and the disk has the room.
    void takeReserve() noexcept;

    /// Gives the reserve up if the disk is full. True when that made room.
    bool giveReserve() noexcept;

private:
    void promise(std::uint64_t bytes);

    std::filesystem::path folder;
    std::filesystem::path reserve;
    std::uint64_t keepFree;
    std::mutex mutex;                     ///< guards the making of claims and of the reserve
    std::atomic<std::uint64_t> claimed{}; ///< promised and not yet written
};

} // namespace tarnd
