#pragma once

#include <cstdint>
#include <string>
#include <vector>

/// What the service tells about stored items. Names, paths, buckets and users are UTF-16, watermarks and
/// types the service's UTF-8 text. Times are milliseconds since 1970 UTC, sizes bytes, both as the service
/// sent them.
namespace connector::tarn {

/// A file in a listing. Wire: the element names stand beside the fields; what is missing or ambiguous keeps
/// its default.
struct FileSummary {
    std::u16string name;            ///< "Name"
    std::uint64_t created = 0;      ///< "Created"
    std::uint64_t lastModified = 0; ///< "LastModified"
    std::uint64_t size = 0;         ///< "Size"
    bool writable = false;          ///< "Writable": the session's user may change it
    std::string watermark;          ///< "Watermark": changes when the content does
};

/// A folder, listed itself or as a sub-folder.
struct FolderSummary {
    std::u16string name;            ///< "Name"
    std::uint64_t created = 0;      ///< "Created"
    std::uint64_t lastModified = 0; ///< "LastModified"
    bool writable = false;          ///< "Writable"
    std::string watermark;          ///< "Watermark"
};

/// One file or folder, looked at by itself.
struct FileAttributes {
    std::string type;               ///< "Type"
    std::u16string name;            ///< "Name"
    std::uint64_t created = 0;      ///< "Created"
    std::uint64_t lastModified = 0; ///< "LastModified"
    std::uint64_t size = 0;         ///< "Size"
    bool writable = false;          ///< "Writable"
    std::string watermark;          ///< "Watermark"
};

/// A file that another user shares, and where it lives.
struct SharedFileSummary : FileSummary {
    std::u16string path;   ///< "Path" in "Resource"
    std::u16string bucket; ///< "Bucket" in "Resource": the storage area of the user who shares it
};

/// A folder that another user shares, and where it lives.
struct SharedFolderSummary : FolderSummary {
    std::u16string path;   ///< "Path" in "Resource"
    std::u16string bucket; ///< "Bucket" in "Resource"
};

/// What one user shares with the session's user.
struct SharedContent {
    std::u16string sharedByUserId;                  ///< "SharedByUserId"
    std::vector<SharedFileSummary> sharedFiles;     ///< items of "SharedFiles", in the order sent
    std::vector<SharedFolderSummary> sharedFolders; ///< items of "SharedFolders", in the order sent
};

} // namespace connector::tarn
