#pragma once

#include <filesystem>

namespace tarnd {

/// Finds the service that has the data directory by its lock file, asks it how it is and prints that.
/// @returns the exit code: 0 ready, 1 running but not ready or not to be reached, 3 none runs
int printStatus(const std::filesystem::path& dataDir);

} // namespace tarnd
