#pragma once

#include "cli/machine/FileDescriptor.h"
#include "cli/transfer/MovedBytes.h"
#include "tarn/transfer/FileTransferMessages.h"

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <sys/stat.h>

/// Contents on their way to the service.
namespace tarncli {

enum class Symlinks { follow, refuse };

/// A local content, opened to be sent once.
///
/// One of a regular file ends with a Failure before its last byte when the file has changed since it was opened: what
/// is part old and part new is never stored.
class LocalContent {
public:
    /// @throws Failure when it cannot be read, is not a regular file, or does not tell its size
    static LocalContent ofFile(const std::filesystem::path& file, Symlinks symlinks);
    /// A file that is open for reading. @param shown  what the user calls it @throws Failure as ofFile
    static LocalContent ofOpened(FileDescriptor opened, const std::string& shown);
    /// A pipe, mostly. @throws Failure
    static LocalContent ofStandardInput();

    /// Bytes; nothing when only the end will tell.
    std::optional<std::uint64_t> size() const { return bytes; }

    /// @param moved  counts what has gone by
    connector::tarn::ContentPublisher publisher(MovedBytes moved) const;

    /// Milliseconds since 1970, of its last change.
    std::uint64_t lastModified() const;
    /// Nanoseconds since 1970, likewise.
    std::int64_t modified() const;

    /// Of all of it; reads it. @param moved  counts what has been read @throws Failure
    std::string sha256(const MovedBytes& moved = countFromZero()) const;

private:
    LocalContent(FileDescriptor opened, std::string shownName);

    bool hasMoreThanItTells() const;

    std::shared_ptr<const FileDescriptor> file;
    std::string shown; ///< escaped

    struct stat before {};

    std::optional<std::uint64_t> bytes;
};

/// Returns when the first byte of standard input is there, or its end.
void awaitStandardInput();

} // namespace tarncli
