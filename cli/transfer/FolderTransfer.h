#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/transfer/Transfers.h"

#include <functional>

namespace tarncli {

/// Makes a folder, and writes it down for `tarn undo`. Whoever made it: one that is there when it is asked for again is
/// as good.
/// @pre the parent is there
/// @param succeeded  is told whether it was new
/// @param failed  as Transfer::failed
Transfer folderTransfer(
    Connection& connection, const RemotePath& folder, std::function<void(bool isNew)> succeeded,
    std::function<void(const std::exception_ptr&)> failed = [](const std::exception_ptr&) {});

} // namespace tarncli
