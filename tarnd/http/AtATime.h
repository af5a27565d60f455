#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace tarnd {

/// How many things of one client or user may go on at a time. Callable from any thread.
class AtATime {
public:
    /// Counts as one of them as long as it exists.
    using Turn = std::shared_ptr<void>;

    /// Counts from now on. @param most  0: any number
    void setLimit(unsigned most);

    unsigned limit() const;

    /// Null when `who` has as many as there may be. @pre this outlives the turn
    Turn enter(std::uint64_t who);

private:
    mutable std::mutex mutex; ///< guards all below
    unsigned most = 0;
    std::unordered_map<std::uint64_t, unsigned> underWay;
};

} // namespace tarnd
