#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/service/Connection.h"

namespace tarncli {

/// Makes a folder, and writes it down for `tarn undo`. When the connection is lost it looks whether the folder was made.
/// @pre the parent is there
/// @throws what the service refuses it with
void createFolder(Connection& connection, const RemotePath& folder);

/// The same, but one that is there already is as good. @return whether it was made
bool createMissingFolder(Connection& connection, const RemotePath& folder);

} // namespace tarncli
