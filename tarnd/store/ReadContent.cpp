#include "tarnd/store/ReadContent.h"

namespace tarnd {

/// An old version that was made current again is newer as the file's content than as a version.
FoundContent::FoundContent(const Node& node, Item file, VersionRow version)
    : file(std::move(file))
    , version(std::move(version))
    , modified(this->version.stamp.id == node.version.id ? node.modified : this->version.created)
{
}

OpenContent openContent(ContentBytes bytes, FoundContent found)
{
    const auto& version = found.version;
    auto tag = version.stamp.id;
    if (version.revision > 0) tag += "-" + std::to_string(version.revision);
    return {std::move(bytes), version.content.size, version.content.sha256, std::move(found.file),
            version.stamp,    std::move(tag),       found.modified};
}

} // namespace tarnd
