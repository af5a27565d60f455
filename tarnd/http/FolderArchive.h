#pragma once

#include "tarnd/http/Reply.h"
#include "tarnd/store/Item.h"
#include "tarnd/store/ItemPath.h"

#include <functional>
#include <variant>

namespace tarnd {

/// What is at a path now: a content or a listing. @throws ServiceError notFound, and others as reading does
using OpenItem = std::function<std::variant<OpenContent, Listing>(const ItemPath& path)>;

/// A folder with all that is below it as one ZIP archive, made while it goes out, in the memory of one listing for
/// each level. What goes away meanwhile is left out, what comes may be; when the folder itself can no longer be read,
/// the archive is cut off.
/// @param open  is asked on the thread of the request until the reply has gone out
/// @param listing  of the folder at `path`
Reply folderArchive(OpenItem open, const ItemPath& path, const Listing& listing);

} // namespace tarnd
