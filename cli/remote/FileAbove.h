#pragma once

#include "cli/remote/RemotePath.h"
#include "cli/service/Connection.h"

namespace tarncli {

/// What to tell when `item` could not be made: the same, or that a file stands where a folder above it is missing.
Failure withFileAbove(Connection& connection, const RemotePath& item, const Failure& failure);

} // namespace tarncli
