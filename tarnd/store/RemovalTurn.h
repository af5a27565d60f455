#pragma once

#include "tarnd/store/UniqueFd.h"

#include <chrono>
#include <filesystem>

namespace tarnd {

/// Keeps the contents that a copy of the database names from being removed while they are copied, over all
/// processes: whoever removes contents takes a turn, and whoever copies a store lets nobody have one. The lock is
/// on the file "store-id", which every store has and which never changes.
class RemovalTurn {
public:
    enum class For { removing, copying };

    /// Waits for the turn until `limit` is over.
    RemovalTurn(const std::filesystem::path& dataDir, For purpose, std::chrono::milliseconds limit);

    /// False when others had it all the time.
    explicit operator bool() const { return granted; }

private:
    UniqueFd file;
    bool granted = false;
};

} // namespace tarnd
