#pragma once

#include "tarnd/store/Contents.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tarnd {

enum class ItemKind : std::int64_t { folder = 0, file = 1 };

/// One file or folder as its attributes and every listing show it. Times: milliseconds since 1970, UTC.
struct Item {
    ItemKind kind = ItemKind::folder;
    std::string name;         ///< UTF-8; "/" for a root folder
    std::int64_t created = 0; ///< when the item itself was made
    std::int64_t lastModified =
        0;                 ///< file: when its current content was set; folder: when an entry came or went
    std::int64_t size = 0; ///< bytes of the current version; 0 for a folder
    bool writable = false; ///< the caller owns it
    std::string watermark; ///< opaque; differs whenever lastModified's cause has happened again
};

/// A folder with its direct entries, files and folders each in byte order of their names.
struct Listing {
    Item folder;
    std::vector<Item> files;
    std::vector<Item> folders;
};

/// A version as every reply names it.
struct VersionStamp {
    std::string id;         ///< unique text, never reused
    std::int64_t label = 0; ///< 1 for the first version of a file, then one more each time
};

/// The version a request asks for. Default: the current one.
///
/// An id alone or with its label is looked up by id, and a label that belongs to another version makes it
/// unknown; a label alone is looked up by label. Labels below 1 name nothing and count as not given.
struct VersionChoice {
    std::string id;
    std::int64_t label = 0;

    bool isCurrent() const { return id.empty() && label < 1; }
};

/// The bytes of one version, open for reading: they stay readable however the file changes or goes meanwhile.
struct OpenContent {
    ContentBytes bytes;    ///< from the first one
    std::int64_t size = 0; ///< bytes
    std::string sha256;    ///< 64 hex digits
    Item file;             ///< the file it was read from; `size` there is that of its current version
    VersionStamp version;
    /// Differs between any two contents that a file ever had: the version's id, and "-N" behind it once the
    /// content was replaced N times under that id.
    std::string tag;
    std::int64_t modified = 0; ///< when the file got this content, milliseconds since 1970, UTC
};

} // namespace tarnd
