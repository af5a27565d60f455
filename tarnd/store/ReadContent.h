#pragma once

#include "tarnd/store/Contents.h"
#include "tarnd/store/Engine.h"
#include "tarnd/store/FileVersions.h"
#include "tarnd/store/Item.h"

#include <utility>

namespace tarnd {

/// What a read found in the tree.
struct FoundContent {
    FoundContent(const Node& node, Item file, VersionRow version);

    Item file;
    VersionRow version;
    std::int64_t modified; ///< when the file got this content, milliseconds since 1970, UTC
};

OpenContent openContent(ContentBytes bytes, FoundContent found);

/// Runs `find(transaction)`, which makes so many statements and names a FoundContent, and opens its content.
/// Between the two the content may be replaced or deleted; then `find` runs again and sees what is there now, or
/// fails as for a file that is not.
template <class Find>
OpenContent readContent(Engine& engine, Database::Statements statements, Find&& find)
{
    constexpr int attempts = 100;
    for (int i = 0; i < attempts; ++i) {
        FoundContent found = engine.database.read(statements, find);
        if (auto bytes = engine.contents.open(found.version.content.id))
            return openContent(std::move(bytes), std::move(found));
    }
    throw sentences::internal.because("a content is missing");
}

} // namespace tarnd
