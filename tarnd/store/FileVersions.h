#pragma once

#include "tarnd/store/Item.h"
#include "tarnd/store/PutOptions.h"
#include "tarnd/store/Tree.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tarnd {

/// A content that is on the disk and that a version may name.
struct StoredContent {
    std::string id;
    std::int64_t size = 0;
    std::string sha256;
};

/// The slot that a put with this mode writes to. @throws as Catalog::put
Slot slotForPut(Tree& tree, const Location& location, CreateMode mode);

/// Makes `content` the current one of the file at the slot, which is created if it is not there. Contents
/// that nothing names any more are added to `dropped`, to be dropped after the commit. @throws as countUse
VersionStamp writeFile(Transaction& transaction, const Caller& caller, const Slot& slot,
                       const StoredContent& content, bool createNewVersion, std::int64_t now,
                       std::vector<std::string>& dropped);

/// Adds a version after all others and makes it current.
VersionStamp addVersion(Transaction& transaction, const Caller& caller, const Node& file,
                        const StoredContent& content, std::int64_t now);

/// Makes a version of the file current.
void setCurrent(Transaction& transaction, std::int64_t file, const std::string& versionId, std::int64_t now);

struct VersionRow {
    VersionStamp stamp;
    std::int64_t created = 0;
    std::int64_t revision = 0; ///< how often its content was replaced under its id
    StoredContent content;
};

/// All versions, the highest label first.
std::vector<VersionRow> versionsOf(Transaction& transaction, std::int64_t file);

/// The version chosen, the current one by default. @throws ServiceError badRequest if there is no such version
VersionRow chosenVersion(Transaction& transaction, const Node& file, const VersionChoice& choice);

} // namespace tarnd
