#pragma once

#include "tarnd/store/Caller.h"
#include "tarnd/store/Engine.h"
#include "tarnd/store/Item.h"
#include "tarnd/store/ItemPath.h"
#include "tarnd/store/Upload.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace tarnd {

/// The tree of folders, files and versions.
///
/// All calls block, may run on any thread and fail with ServiceError: notFound for a path that is not there
/// or that the caller may not see (an unknown bucket included), notAllowed for a change to an item that is
/// only shared with the caller, conflict as told below. A change is durable when the call returns.
class Catalog {
public:
    explicit Catalog(Engine engine) : engine(std::move(engine)) {}

    /// Begins an upload after checking what can be checked before the first byte; see Upload. A short
    /// content that is coming anyway, and that costs little to write, is only checked by Upload::commit().
    /// `expectedSize` is the announced length in bytes, if there is one; what would leave too little of the
    /// disk is refused (insufficientStorage), without a length as soon as so much has come.
    /// create: conflict if the path is taken. update: notFound if it is not there. A folder of that name:
    /// conflict. Otherwise a missing parent folder is a conflict that names it (notFound outside the caller's
    /// own bucket). preconditionFailed: PutOptions::condition does not hold.
    std::unique_ptr<Upload> put(const Caller& caller, const Location& location, const PutOptions& options,
                                std::optional<std::uint64_t> expectedSize);

    /// @throws ServiceError also conflict for a folder, badRequest for an unknown version
    OpenContent read(const Caller& caller, const Location& location, const VersionChoice& version = {});

    /// Deletes the file with all versions, grants and links.
    /// @throws ServiceError also conflict for a folder, preconditionFailed
    void deleteFile(const Caller& caller, const Location& location, const Condition& condition = {});

    /// The attributes of a file or folder.
    Item attributes(const Caller& caller, const Location& location);

    /// Makes one folder. @throws ServiceError also conflict if the path is taken or the parent is missing
    void createFolder(const Caller& caller, const Location& location);

    /// @throws ServiceError also conflict for a file
    Listing list(const Caller& caller, const Location& location);

    /// Deletes the folder and, with `forceRecursive`, all below it.
    /// @throws ServiceError also conflict for a file, the root folder, or entries without `forceRecursive`
    void deleteFolder(const Caller& caller, const Location& location, bool forceRecursive);

    /// Renames and moves in one step, within what the caller owns; versions, grants and links move along.
    ///
    /// With `overwrite` a file replaces a file and a folder replaces an empty folder; the replaced item goes
    /// with its versions, grants and links. Moving an item onto itself with `overwrite` changes nothing.
    /// @throws ServiceError also conflict: target taken, of the other kind or not empty, its parent missing,
    /// a folder into itself, the root folder
    void move(const Caller& caller, const Location& source, const Location& target, bool overwrite);

private:
    Engine engine;
};

} // namespace tarnd
