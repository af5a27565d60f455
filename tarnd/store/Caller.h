#pragma once

#include <cstdint>
#include <string>

namespace tarnd {

/// Who makes a request: what every operation takes first.
struct Caller {
    std::int64_t userId = 0;
    std::string user;            ///< UTF-8 name
    std::string sessionKey = {}; ///< the stored (hashed) form of the session id; not the id itself
    /// Both are only assumed of a session that was alive a moment ago, until the database has answered the first query
    /// made for the caller: see requireSession().
    mutable bool hasQuota = false;
    mutable bool isAssumed = false;
};

} // namespace tarnd
