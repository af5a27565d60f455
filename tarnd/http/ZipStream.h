#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>

namespace tarnd {

/// Writes a ZIP archive from its first byte to its last, of any size: names in UTF-8, times in UTC, contents as they
/// are. The table of entries, which stands at the end, waits in a temporary file until then, so that memory does not
/// grow with the archive.
///
/// addFolder(), and beginFile() → addContent() as often as needed → endFile(), for each entry; then addEnd() until it
/// says that there is no more. After each of them take() what was written.
class ZipStream {
public:
    /// Bytes that addContent() takes at a time.
    static constexpr std::size_t mostContent = 65535;

    /// @throws ServiceError internal when there is no temporary file to be had
    ZipStream();

    /// @param path  with '/' between names, without one at the end
    /// @param modified  milliseconds since 1970, UTC
    void addFolder(const std::string& path, std::int64_t modified);

    /// @param size  of the content that follows
    void beginFile(const std::string& path, std::int64_t modified, std::uint64_t size);
    void addContent(std::string_view bytes);
    void endFile();

    /// Writes a piece of the end; false when all is written.
    bool addEnd();

    /// Moves up to `size` of the bytes that were written; how many. @throws ServiceError internal
    std::size_t take(char* data, std::size_t size);

private:
    struct Entry {
        std::string path;
        std::int64_t modified = 0;
        std::uint64_t size = 0, stored = 0; ///< bytes before and after what the format adds between them
        std::uint64_t at = 0;               ///< where it begins
        std::uint32_t checksum = 0;
        bool isFolder = false;
        bool isLarge = false; ///< its sizes need 64 bits
    };

    std::uint64_t position() const { return taken + pending.size() - pendingTaken; }

    void addHead();
    void keepForEnd();
    void addLastRecord();

    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };

    std::unique_ptr<std::FILE, Close> table;
    std::uint64_t entries = 0, tableSize = 0, tableAt = 0;
    enum class Stage { entries, table, done } stage = Stage::entries;
    Entry entry;
    std::uint64_t left = 0; ///< bytes of its content to come
    std::string pending;    ///< written and not taken from `pendingTaken` on
    std::size_t pendingTaken = 0;
    std::uint64_t taken = 0; ///< bytes in all
};

} // namespace tarnd
