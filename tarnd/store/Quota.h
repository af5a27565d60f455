#pragma once

#include "tarnd/store/Caller.h"
#include "tarnd/store/Database.h"

#include <cstdint>

namespace tarnd {

/// users.used is what all versions of a user's files have together. It changes in the transaction that changes these,
/// so that no number of uploads at a time gets a user beyond what the user may have.

/// Counts bytes that `owner` has more, or fewer, than before. @throws ServiceError insufficientStorage
void countUse(Transaction& transaction, const Caller& caller, std::int64_t owner, std::int64_t bytes);

/// The same for what happens whatever the quota.
void countUse(Transaction& transaction, std::int64_t owner, std::int64_t bytes);

/// Refuses early what countUse() would refuse in the end. @throws as countUse
void requireQuotaFor(Transaction& transaction, const Caller& caller, std::int64_t bytes);

} // namespace tarnd
