#pragma once

#include "tarnd/store/Secrets.h"
#include "tarnd/store/UniqueFd.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>

namespace tarnd {

class ContentFolder;

/// One content being total. Destroyed before keep() or abandon(): nothing is left of it. One thread at a time.
class ContentWriter {
public:
    /// @throws ServiceError insufficientStorage, internal
    explicit ContentWriter(ContentFolder& folder);
    ~ContentWriter();
    ContentWriter(const ContentWriter&) = delete;
    ContentWriter& operator=(const ContentWriter&) = delete;

    /// @throws ServiceError insufficientStorage, internal
    void write(const void* data, std::size_t size);

    /// Makes bytes and name durable. The content keeps its temporary name as well until keep() or
    /// destruction, which tells every other process that it is not an orphan although no row names it yet.
    void publish();

    /// A committed row names the content now.
    void keep() noexcept;

    /// Leaves nothing of the content; what the destructor does when nothing else was called.
    void discard() noexcept;

    /// Nobody knows whether a row names the content: it stays, with both names, for the next start to decide.
    void abandon() noexcept;

    const std::string& id() const { return contentId; }

    std::uint64_t size() const { return total; }

    /// 64 hex digits. @pre publish() was called
    const std::string& sha256() const { return digestText; }

private:
    ContentFolder& folder;
    std::string contentId;
    std::filesystem::path temporary;
    std::filesystem::path published; ///< empty until publish()
    UniqueFd file;
    Sha256 digest;
    std::string digestText;
    std::uint64_t total = 0;
    bool settled = false;
};

} // namespace tarnd
