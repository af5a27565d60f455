#include "tarnd/store/ReadContent.h"

#include "tarnd/store/Condition.h"

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
    auto tag = contentTag(version.stamp.id, version.revision, version.content.id);
    return {std::move(bytes), version.content.size, version.content.sha256, std::move(found.file),
            version.stamp,    std::move(tag),       found.modified};
}

} // namespace tarnd
