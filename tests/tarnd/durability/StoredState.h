#pragma once

#include <filesystem>
#include <string>

namespace tarnd::test {

/// All that the database in a data directory knows of a user, save what differs from run to run. Empty when
/// there is nothing.
std::string stateOf(const std::filesystem::path& dataDir, const std::string& user);

/// What a check finds wrong, and what lies about that has no business there; empty when all is well. Nobody
/// writes meanwhile.
std::string faultsIn(const std::filesystem::path& dataDir);

} // namespace tarnd::test
