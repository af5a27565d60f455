#pragma once

#include "tarnd/store/ContentRemover.h"
#include "tarnd/store/DiskRoom.h"
#include "tarnd/store/Histogram.h"
#include "tarnd/store/UniqueFd.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace tarnd {

/// Steps of a write, told to a listener in this order; a test looks at the disk, or disturbs, in between.
enum class WriteStep {
    bytesWritten,
    bytesDurable,
    contentNamed,
    folderDurable,
    transactionOpen,
    committed,
    finished
};

using WriteListener = std::function<void(WriteStep)>;

/// File contents under random ids in 256 folders, immutable once published.
///
/// DIR/contents/ab/ab34…   one file per content, named by its id (32 hex digits)
/// DIR/uploads/RANDOM/     temporary names of one live process, which holds a lock on its file "lock"
///
/// Several processes may work on one folder. All calls may run on any thread.
class ContentFolder {
public:
    /// Makes what is missing of the layout. @throws ServiceError internal
    /// @param keepFree bytes of the disk that no upload may take
    explicit ContentFolder(std::filesystem::path dataDir, WriteListener listener = {},
                           std::uint64_t keepFree = 0);
    ~ContentFolder();

    /// Opens a content for reading; an empty descriptor if it is not there.
    UniqueFd open(const std::string& id) const;

    /// Deletes contents whose rows are gone, in the background; a content already gone is no error.
    void drop(const std::vector<std::string>& ids);

    /// The same before it returns; nothing goes while a copy of the store is being made.
    void dropNow(const std::vector<std::string>& ids) noexcept;

    /// Blocks until all dropped contents are off the disk.
    void finishDrops() { remover.finish(); }

    DiskRoom& room() { return diskRoom; }

    /// How long it took until contents were on the disk, each with its folder.
    Histogram& syncs() { return syncTimes; }

    /// Why no content could be stored now, as a sentence; empty when one could.
    std::string whyNotWritable();

    /// All ids present, sorted.
    std::vector<std::string> ids() const;

    /// Files among the contents whose names cannot be ids.
    std::vector<std::string> strangers() const;

    /// Some process that is still alive is writing this content.
    bool isBeingWritten(const std::string& id) const;

    /// Removes what dead processes left in their temporary folders; returns how many files.
    std::size_t dropAbandonedUploads();

    void notify(WriteStep step) const
    {
        if (listener) listener(step);
    }

    /// A fresh id for a content.
    std::string newId() const;

    /// Where the content is, or will be.
    std::filesystem::path contentPath(const std::string& id) const;

    /// The temporary folder of this process, made at the first call.
    std::filesystem::path ownUploads();

private:
    std::filesystem::path dataDir;
    std::filesystem::path contents;
    std::filesystem::path uploads;
    WriteListener listener;
    std::mutex ownMutex; ///< guards the making of the two below
    std::filesystem::path ownFolder;
    UniqueFd ownLock; ///< held while this process lives
    DiskRoom diskRoom;
    Histogram syncTimes;
    ContentRemover remover;
};

} // namespace tarnd
