#pragma once

#include "tarnd/store/ContentRemover.h"
#include "tarnd/store/Contents.h"

#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

namespace tarnd {

/// Contents as files in 256 folders, immutable once published.
///
/// DIR/contents/ab/ab34…   one file per content, named by its id
/// DIR/uploads/RANDOM/     temporary names of one live process, which holds a lock on its file "lock"
class ContentFolder final : public Contents {
public:
    /// Makes what is missing of the layout. The room is that of the disk the folder is on.
    /// @throws ServiceError internal
    ContentFolder(std::filesystem::path dataDir, DiskRoom& room, WriteListener listener = {});
    ~ContentFolder() override;

    void join(Database& database, const DataDirectory& directory) override;
    ContentBytes open(const std::string& id) const override;
    std::unique_ptr<ContentWriter> write(std::optional<std::uint64_t> size) override;

    DiskRoom::Claim claimRoom(std::uint64_t bytes) override { return room.claim(bytes); }

    void drop(const std::vector<std::string>& ids) override;

    /// Nothing goes while a copy of the store is being made.
    void dropNow(const std::vector<std::string>& ids) noexcept override;

    void finishDrops() override { remover.finish(); }

    std::string whyNotWritable() override;
    std::vector<std::string> ids(const std::string& beginning = {}) const override;
    bool has(const std::string& id) const override;
    std::vector<std::string> strangers() const override;
    bool isBeingWritten(const std::string& id) const override;
    std::size_t dropAbandonedUploads() override;

    /// Where the content is, or will be.
    std::filesystem::path contentPath(const std::string& id) const;

    /// The temporary folder of this process, made at the first call.
    std::filesystem::path ownUploads();

private:
    bool remove(const std::vector<std::string>& ids, bool lastTry);

    std::filesystem::path dataDir;
    std::filesystem::path contents;
    std::filesystem::path uploads;
    std::mutex ownMutex; ///< guards the making of the two below
    std::filesystem::path ownFolder;
    UniqueFd ownLock; ///< held while this process lives
    DiskRoom& room;
    ContentRemover remover;
};

} // namespace tarnd
