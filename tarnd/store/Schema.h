#pragma once

namespace tarnd {

class Database;

/// Makes the tables that are missing. @throws ServiceError conflict when a newer program made them
void prepareSchema(Database& database);

} // namespace tarnd
