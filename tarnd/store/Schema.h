#pragma once

#include <filesystem>

namespace tarnd {

class Database;

/// Makes the tables that are missing, and brings those of an earlier program up to date in one transaction. An SQLite
/// database is first copied to "tarn.db.before-upgrade" in `folder`, in the place of an earlier such copy.
/// @throws ServiceError conflict when a newer program made them
void prepareSchema(Database& database, const std::filesystem::path& folder);

} // namespace tarnd
