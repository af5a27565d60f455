#pragma once

#include "cli/service/Connection.h"
#include "tarn/accesscontrol/PermissionMessages.h"

#include <string>
#include <vector>

namespace tarncli {

/// The grants on the item at `path`, or all of the user's when it is empty. The path travels as a query value, where
/// every name is safe. @throws Failure with the item in front
std::vector<connector::tarn::Permission> listGrants(Connection& connection, const std::string& path);

} // namespace tarncli
