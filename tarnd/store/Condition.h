#pragma once

#include "tarnd/store/Tree.h"

#include <optional>
#include <string>
#include <vector>

namespace tarnd {

/// What a file has to be so that a change of it is made: with it, nobody overwrites what he has not seen.
struct Condition {
    struct Tags {
        bool any = false;
        std::vector<std::string> named = {}; ///< as OpenContent::tag
    };

    std::optional<Tags> match;     ///< the file is there, and its content has one of these
    std::optional<Tags> noneMatch; ///< it is not there, or its content has none of these

    /// @param existing  the file as it is now @throws ServiceError preconditionFailed
    void require(const std::optional<Node>& existing) const;
};

/// Tells contents apart: no other content of the file has it, now or at any time.
/// @param revision  how often the content of the version was replaced
std::string contentTag(const std::string& version, std::int64_t revision, const std::string& content);

} // namespace tarnd
