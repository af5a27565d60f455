#pragma once

#include "tarnd/store/Caller.h"

#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

namespace tarnd {

/// Whose the sessions are that were found alive lately. That never changes; whether they still live, only the database
/// knows. Any thread.
class RecentSessions {
public:
    /// @returns nothing where its last use is not known to be later than `since`, and no later than `until`
    std::optional<Caller> find(const std::string& key, std::int64_t since, std::int64_t until) const;

    /// @param used  of the stored last use; both times in milliseconds since 1970, UTC
    void remember(const Caller& caller, std::int64_t used);

    void forget(const std::string& key);

private:
    struct Recent {
        Caller caller;
        std::int64_t used;
    };

    mutable std::mutex mutex;
    std::unordered_map<std::string, Recent> sessions; ///< by their keys; guarded by the mutex
};

} // namespace tarnd
