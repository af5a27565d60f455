#pragma once

#include "service/store/Secrets.h"
#include "service/store/UniqueFd.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace tarnd {

class ContentFolder;

/// Steps of a write, told to a listener in this order; a test stops the process at one of them.
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

/// One content being written. Destroyed before keep(): nothing is left of it.
class ContentWriter {
public:
    explicit ContentWriter(ContentFolder& folder);
    ~ContentWriter();
    ContentWriter(const ContentWriter&) = delete;
    ContentWriter& operator=(const ContentWriter&) = delete;

    /// @throws ServiceError insufficientStorage, internal
    void write(const void* data, std::size_t size);

    /// Makes bytes and name durable. The content keeps its temporary name as well until keep() or
    /// destruction, which tells every other process that it is not an orphan although no row names it yet.
    void publish();

    /// The content belongs to a committed row now.
    void keep();

    /// Leaves a published content where it is although nobody knows whether a row names it; the next start
    /// decides.
    void abandon();

    const std::string& id() const { return id_; }

    std::uint64_t size() const { return size_; }

    /// 64 hex digits. @pre publish() was called
    const std::string& sha256() const { return sha256_; }

private:
    ContentFolder& folder_;
    std::string id_;
    UniqueFd file_;
    Sha256 digest_;
    std::string sha256_;
    std::uint64_t size_ = 0;
    bool published_ = false;
};

/// File contents under random ids in 256 folders, immutable once published.
///
/// DIR/contents/ab/ab34…   one file per content, named by its id (32 hex digits)
/// DIR/uploads/RANDOM/     temporary names of one live process, which holds a lock on the file "lock" in
/// there
///
/// Several processes may work on one folder. All calls may run on any thread.
class ContentFolder {
public:
    /// Makes what is missing of the layout. @throws ServiceError internal
    explicit ContentFolder(std::filesystem::path dataDir, WriteListener listener = {});
    ~ContentFolder();

    /// Opens a content for reading; an empty descriptor if it is not there.
    UniqueFd open(const std::string& id) const;

    /// Deletes contents whose rows are gone; a content already gone is no error.
    void drop(const std::vector<std::string>& ids) noexcept;

    /// All ids present, sorted.
    std::vector<std::string> ids() const;

    /// Files among the contents whose names cannot be ids.
    std::vector<std::string> strangers() const;

    /// Some process that is still alive is writing this content.
    bool isBeingWritten(const std::string& id) const;

    /// Removes what processes that are no longer alive left in their temporary folders; returns how many
    /// files.
    std::size_t dropAbandonedUploads();

    void notify(WriteStep step) const
    {
        if (listener_) listener_(step);
    }

private:
    friend class ContentWriter;

    std::filesystem::path contentPath(const std::string& id) const;
    void lockOwnUploads();

    std::filesystem::path contents_;
    std::filesystem::path uploads_;
    std::filesystem::path ownUploads_;
    UniqueFd ownLock_;
    WriteListener listener_;
};

} // namespace tarnd
