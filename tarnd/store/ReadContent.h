#pragma once

#include "tarnd/store/ContentFolder.h"
#include "tarnd/store/Engine.h"
#include "tarnd/store/FileVersions.h"
#include "tarnd/store/Item.h"

#include <utility>

namespace tarnd {

/// What a read found in the tree.
struct FoundContent {
    Item file;
    VersionRow version;
};

/// Runs `find(transaction)`, which names a FoundContent, and opens its content. Between the two the content
/// may be replaced or deleted; then `find` runs again and sees what is there now, or fails as for a file that
/// is not.
template <class Find>
OpenContent readContent(Engine& engine, Find&& find)
{
    constexpr int attempts = 100;
    for (int i = 0; i < attempts; ++i) {
        auto [file, version] = engine.database.read(find);
        if (auto fd = engine.contents.open(version.content.id))
            return {std::move(fd), version.content.size, version.content.sha256, std::move(file),
                    version.stamp};
    }
    throw sentences::internal.because("a content is missing");
}

} // namespace tarnd
