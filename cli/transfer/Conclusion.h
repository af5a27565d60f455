#pragma once

#include "cli/remote/Wildcards.h"
#include "cli/transfer/Transfers.h"

#include <nlohmann/json_fwd.hpp>
#include <string>

namespace tarncli {

/// Adds what happened in `more` to `report`.
void addTo(TransferReport& report, TransferReport&& more);

/// [{"item": …, "error": …, "kind": …, "code": …}, …]
nlohmann::json toJson(const std::vector<TransferReport::Failed>& failed);

/// Does `action` for each of `items`; one that fails does not keep the others from being done, unless the
/// service cannot be reached any more. Failures are told as they come when there are several items.
/// @param action  called with an item
TransferReport forEach(Output& out, const std::vector<std::string>& items,
                       const std::function<void(const std::string&)>& action);

/// Likewise for each item that `paths` stand for, wildcards expanded first.
/// @param missingIsFine  a pattern that nothing matches is no failure
TransferReport forEachItem(Connection& connection, Output& out, const std::vector<std::string>& paths,
                           bool missingIsFine, const std::function<void(const RemoteItem&)>& action);

/// Ends a verb that dealt with many items: returns when all went well.
/// @param verb  "stored", "deleted"
/// @throws Failure  the one failure there is when nothing else was to be done; otherwise how much was not done,
///                  with partlyDone when something was, and else with the code of the first failure
void conclude(const TransferReport& report, const std::string& verb);

} // namespace tarncli
