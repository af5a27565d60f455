#pragma once

#include "tarnd/store/Caller.h"
#include "tarnd/store/Condition.h"
#include "tarnd/store/Engine.h"
#include "tarnd/store/Item.h"
#include "tarnd/store/ItemPath.h"

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

namespace tarnd {

struct Version {
    VersionStamp stamp;
    std::int64_t created = 0; ///< when its content was stored, milliseconds since 1970, UTC
    std::int64_t size = 0;    ///< bytes
    std::string sha256;
    bool current = false;
};

struct VersionHistory {
    std::string name;              ///< of the file
    std::vector<Version> versions; ///< newest (highest label) first
};

/// Which versions are old: those that are it in both respects.
struct PruneRule {
    std::int64_t keep = 0; ///< so many of each file are not, the newest
    std::int64_t before = std::numeric_limits<std::int64_t>::max(); ///< only what was stored earlier is
};

struct PruneReport {
    std::string user;
    std::int64_t versions = 0;
    std::int64_t bytes = 0; ///< of these versions; contents that others share stay
};

/// The earlier contents of a file. All calls block and may run on any thread; ServiceError as in Catalog.
class Versions {
public:
    explicit Versions(Engine engine) : engine(std::move(engine)) {}

    /// Readers of the file see its history too. @throws ServiceError also conflict for a folder
    VersionHistory list(const Caller& caller, const Location& location);

    /// Brings an old version back and returns the version now current: with `createNewVersion` a copy of its
    /// content as the newest version, otherwise the old version itself, and the later ones stay in the list.
    /// @throws ServiceError also badRequest for an unknown version or none given,
    /// preconditionFailed
    VersionStamp restore(const Caller& caller, const Location& location, const VersionChoice& version,
                         bool createNewVersion, const Condition& condition = {});

    /// Deletes the old versions of all files, never a current one; contents that no version names any more go after
    /// it. Tells of each user who had any, in the order of their names.
    /// @param user    of this one only; empty: of all @throws ServiceError badRequest for an unknown one
    /// @param dryRun  deletes nothing, and tells what would go
    std::vector<PruneReport> prune(const PruneRule& rule, const std::string& user, bool dryRun);

private:
    Engine engine;
};

} // namespace tarnd
