#pragma once

namespace tarnd {

struct StoreOptions;

/// Finds the service that has the data directory by its lock file, asks it how it is and prints that.
/// @returns the exit code: 0 ready, 1 running but not ready or not to be reached, or nobody can tell, as over
/// PostgreSQL, where several may run; 3 none runs
/// @throws ServiceError conflict where the lock file cannot be read
int printStatus(const StoreOptions& options);

} // namespace tarnd
