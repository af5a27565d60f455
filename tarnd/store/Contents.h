#pragma once

#include "tarnd/store/DiskRoom.h"
#include "tarnd/store/Histogram.h"
#include "tarnd/store/Secrets.h"
#include "tarnd/store/UniqueFd.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnd {

class Database;
class DataDirectory;

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

/// The bytes of a content on their way from elsewhere. One thread at a time.
class ContentStream {
public:
    virtual ~ContentStream() = default;

    /// Bytes of the whole content.
    virtual std::uint64_t size() const = 0;

    /// Begins anew with these bytes, after which the stream ends. @pre the content has them
    virtual void choose(std::uint64_t first, std::uint64_t count) = 0;

    /// The next bytes, at least one; 0 at the end. Blocks, though not for ever.
    /// @throws ServiceError unavailable when no more come
    virtual std::size_t read(void* data, std::size_t size) = 0;
};

/// A content open for reading: a file at its beginning, or a stream. False when there is none.
struct ContentBytes {
    UniqueFd file = {};
    std::unique_ptr<ContentStream> stream = {};
    std::string ahead = {}; ///< read from the stream by beginning()

    explicit operator bool() const { return file || stream; }

    std::uint64_t size() const;

    /// The next bytes, at least one; 0 at the end. @throws ServiceError
    std::size_t read(void* data, std::size_t size);

    /// The first bytes, which read() will tell again; fewer when there are no more. @pre nothing was read
    std::string beginning(std::size_t most);

    /// Of a stream only these bytes are wanted. @pre nothing was read, and the content has them
    void choose(std::uint64_t first, std::uint64_t count);
};

/// One content being made. Destroyed before keep() or abandon(): nothing is left of it. One thread at a time.
class ContentWriter {
public:
    virtual ~ContentWriter() = default;
    ContentWriter(const ContentWriter&) = delete;
    ContentWriter& operator=(const ContentWriter&) = delete;

    /// @throws ServiceError insufficientStorage, unavailable, internal
    void write(const void* data, std::size_t size)
    {
        digest.update(data, size);
        total += size;
        append(data, size);
    }

    /// Makes the content durable under its id. No other process takes it for an orphan before keep() or destruction,
    /// although no row names it yet.
    void publish()
    {
        digestText = digest.finish();
        makeDurable();
    }

    /// Called in the transaction that enters the row. @throws ServiceError when the content was taken for an orphan
    /// after all
    virtual void requireThere() = 0;

    /// A committed row names the content now.
    virtual void keep() noexcept = 0;

    /// Leaves nothing of the content; what destruction does when nothing else was called.
    virtual void discard() noexcept = 0;

    /// Nobody knows whether a row names the content: it stays until rows and contents are compared.
    virtual void abandon() noexcept = 0;

    const std::string& id() const { return contentId; }

    std::uint64_t size() const { return total; }

    /// 64 hex digits. @pre publish() was called
    const std::string& sha256() const { return digestText; }

protected:
    explicit ContentWriter(std::string id) : contentId(std::move(id)) {}

private:
    virtual void append(const void* data, std::size_t size) = 0;
    virtual void makeDurable() = 0;

    const std::string contentId;
    Sha256 digest;
    std::string digestText;
    std::uint64_t total = 0;
};

/// Where the bytes of files are: under random ids (32 hex digits), never changed once published. Several processes
/// may work on the same contents. All calls may run on any thread; they fail with ServiceError, unavailable where
/// the contents cannot be reached.
class Contents {
public:
    virtual ~Contents() = default;

    /// Checks that these contents are those of the database, and claims empty ones for a new database. Without this
    /// check a start with the wrong database would take every content for an orphan and remove it.
    /// @throws ServiceError conflict
    virtual void join(Database& database, const DataDirectory& directory) = 0;

    /// Opens a content for reading; nothing if it is not there.
    virtual ContentBytes open(const std::string& id) const = 0;

    /// @param size of the content in bytes, where it is known beforehand
    virtual std::unique_ptr<ContentWriter> write(std::optional<std::uint64_t> size) = 0;

    /// Room for an upload of so many bytes. @throws ServiceError insufficientStorage
    virtual DiskRoom::Claim claimRoom(std::uint64_t bytes) = 0;

    /// Deletes contents whose rows are gone, in the background; a content already gone is no error.
    virtual void drop(const std::vector<std::string>& ids) = 0;

    /// The same before it returns; what cannot be deleted is found again as an orphan.
    virtual void dropNow(const std::vector<std::string>& ids) noexcept = 0;

    /// Blocks until all dropped contents are gone, or were left to be found as orphans.
    virtual void finishDrops() = 0;

    /// Why no content could be stored now, as a sentence; empty when one could.
    virtual std::string whyNotWritable() = 0;

    /// All ids present that begin so, sorted.
    virtual std::vector<std::string> ids(const std::string& beginning = {}) const = 0;

    /// The content is there. Certain, where ids() may be a little behind.
    virtual bool has(const std::string& id) const = 0;

    /// What lies among the contents and cannot be one.
    virtual std::vector<std::string> strangers() const = 0;

    /// A process may be writing this content, or may be about to enter its row.
    virtual bool isBeingWritten(const std::string& id) const = 0;

    /// Removes what uploads of processes that are gone have left; returns how many.
    virtual std::size_t dropAbandonedUploads() = 0;

    /// How often a service compares rows and contents while it works; nothing: once, at its start.
    virtual std::optional<std::chrono::seconds> sweepInterval() const { return {}; }

    /// A content that is stored travels over a network.
    virtual bool isRemote() const { return false; }

    /// Fails what waits for the contents at the moment, so that the process can end.
    virtual void interruptWaits() {}

    /// How long it took until contents were durable.
    Histogram& syncs() { return syncTimes; }

    void notify(WriteStep step) const
    {
        if (listener) listener(step);
    }

    /// A fresh id for a content.
    static std::string newId();

    static bool isId(const std::string& name);

protected:
    explicit Contents(WriteListener listener) : listener(std::move(listener)) {}

private:
    const WriteListener listener;
    Histogram syncTimes;
};

} // namespace tarnd
