#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/transfer/Transfers.h"
#include "tarn/fileaccess/FileRecords.h"

#include <memory>
#include <vector>

namespace tarncli {

/// A remote folder with everything below it.
struct RemoteFolder {
    RemotePath where;
    std::string name;
    std::vector<connector::tarn::FileSummary> files;
    std::vector<std::unique_ptr<RemoteFolder>> folders; ///< those whose listing failed are empty
};

struct RemoteTree {
    std::unique_ptr<RemoteFolder> root;
    TransferReport report; ///< `done` counts folders listed; folders that could not be listed have failed
};

/// Lists `root` and all below it, several folders at a time.
RemoteTree listRemoteTree(Connection& connection, Output& out, const RemotePath& root);

} // namespace tarncli
