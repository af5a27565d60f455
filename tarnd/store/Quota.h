#pragma once

#include "tarnd/store/Caller.h"
#include "tarnd/store/Database.h"

#include <cstdint>
#include <limits>

namespace tarnd {

/// users.used is what all versions of a user's files have together. It changes in the transaction that changes these,
/// so that no number of uploads at a time gets a user beyond what the user may have.

/// Counts bytes that `owner` has more, or fewer, than before. @throws ServiceError insufficientStorage
void countUse(Transaction& transaction, const Caller& caller, std::int64_t owner, std::int64_t bytes);

/// The same for what happens whatever the quota.
void countUse(Transaction& transaction, std::int64_t owner, std::int64_t bytes);

/// What is left of a quota: to refuse early what countUse() would refuse in the end.
struct QuotaRoom {
    std::int64_t left = std::numeric_limits<std::int64_t>::max(); ///< bytes
    std::int64_t quota = 0;

    bool has(std::uint64_t bytes) const { return bytes == 0 || static_cast<std::int64_t>(bytes) <= left; }

    /// @throws as countUse
    void require(std::uint64_t bytes) const;
};

/// @param freed  bytes that go when the new ones come
QuotaRoom quotaRoomOf(Transaction& transaction, const Caller& caller, std::int64_t freed);

} // namespace tarnd
