#pragma once

#include "tarnd/store/Caller.h"
#include "tarnd/store/Engine.h"
#include "tarnd/store/Item.h"
#include "tarnd/store/ItemPath.h"
#include "tarnd/store/PutOptions.h"

#include <cstdint>
#include <string>

namespace tarnd {

struct OpenHandle {
    std::string id;
    std::int64_t size = 0; ///< bytes of the version opened; 0 when created or truncated
    bool created = false;  ///< the file did not exist: commit will make it
};

/// Open files. A handle belongs to the session that opened it and ends with it, aborted. The interface moves
/// no bytes through a handle, so what a commit can make visible is a file created or truncated by the
/// opening. All calls block and may run on any thread; ServiceError as in Catalog.
class FileHandles {
public:
    explicit FileHandles(Engine engine) : engine(std::move(engine)) {}

    /// @throws ServiceError also badRequest for an unknown version
    OpenHandle openReadOnly(const Caller& caller, const Location& location,
                            const VersionChoice& version = {});

    /// Checks like Catalog::put with this mode; neither creation nor truncation is visible before the commit.
    OpenHandle openReadWrite(const Caller& caller, const Location& location, CreateMode mode, bool truncate);

    enum class CloseOperation { commit, abort };

    /// Ends the handle. A commit that the tree is against (the name was taken meanwhile, say) ends it too and
    /// changes nothing; one that the storage fails leaves it. `createNewVersion` tells how a truncation is kept;
    /// it means nothing for a file that the handle creates.
    /// @throws ServiceError badRequest for a handle that this session does not have; otherwise as
    /// Upload::commit
    void close(const Caller& caller, const std::string& handleId, CloseOperation operation,
               bool createNewVersion);

private:
    Engine engine;
};

} // namespace tarnd
