#include "tarnd/store/Quota.h"

#include "tarnd/store/Size.h"

#include <algorithm>

namespace tarnd {

namespace {

ServiceError quotaExceeded(std::int64_t quota)
{
    return sentences::quotaExceeded(sizeText(static_cast<std::uint64_t>(quota)));
}

void requireWithin(std::int64_t used, std::int64_t quota)
{
    if (quota > 0 && used > quota) throw quotaExceeded(quota);
}

} // namespace

/// Who has no quota is spared the wait for an answer.
void countUse(Transaction& transaction, const Caller& caller, std::int64_t owner, std::int64_t bytes)
{
    if (!caller.hasQuota || bytes <= 0) return countUse(transaction, owner, bytes);
    const auto row = transaction.row<std::int64_t, std::int64_t>(
        "UPDATE users SET used = used + $1 WHERE id = $2 RETURNING used, quota", bytes, owner);
    if (row) requireWithin(std::get<0>(*row), std::get<1>(*row));
}

void countUse(Transaction& transaction, std::int64_t owner, std::int64_t bytes)
{
    if (bytes != 0) transaction.run("UPDATE users SET used = used + $1 WHERE id = $2", bytes, owner);
}

void QuotaRoom::require(std::uint64_t bytes) const
{
    if (!has(bytes)) throw quotaExceeded(quota);
}

QuotaRoom quotaRoomOf(Transaction& transaction, const Caller& caller, std::int64_t freed)
{
    if (!caller.hasQuota) return {};
    const auto row = transaction.row<std::int64_t, std::int64_t>(
        "SELECT used, quota FROM users WHERE id = $1", caller.userId);
    if (!row || std::get<1>(*row) <= 0) return {};
    const auto [used, quota] = *row;
    return {std::max<std::int64_t>(quota - used, 0) + freed, quota};
}

} // namespace tarnd
