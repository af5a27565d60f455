#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/service/ChangeLog.h"
#include "cli/transfer/Transfers.h"

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tarncli {

/// The same transfer, and what it changes is written down before it is sent, for `tarn undo`.
/// @param after  Change::after, set when it has succeeded; empty: nothing told it
Transfer recorded(Connection& connection, Transfer transfer, Change change,
                  std::shared_ptr<const std::string> after = std::make_shared<const std::string>());

/// The versions that are the current ones of these files, by their paths, several asked for at a time; what the
/// service does not tell is missing.
std::map<std::string, std::string>
currentVersions(Connection& connection, Output& out,
                const std::vector<std::pair<RemotePath, std::uint64_t>>& filesAndSizes);

} // namespace tarncli
