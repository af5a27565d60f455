#pragma once

#include "tarnd/store/Database.h"

#include <cstdint>
#include <functional>

namespace tarnd {

/// Told now and then how many rows there are so far.
using RowProgress = std::function<void(std::uint64_t rows)>;

/// Copies all rows that `from` sees into the tables of `to`, which are there and empty, and compares the SHA-256 of
/// what was read and of what `to` sees in the end. Both may be of any engine; little is in memory at a time. The
/// row that tells the version of the schema is the target's own.
/// @param target  the dialect of `to`, whose transaction is for writing
/// @returns how many rows
/// @throws ServiceError internal when they differ, and what the engines say
std::uint64_t copyRows(Transaction& from, Transaction& to, const Dialect& target,
                       const RowProgress& progress = {});

/// SHA-256 of all rows that copyRows() would copy, in an order that depends on nothing but them.
std::string digestOfRows(Transaction& transaction);

} // namespace tarnd
