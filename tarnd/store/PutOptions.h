#pragma once

#include "tarnd/store/Condition.h"

#include <cstdint>
#include <string>

namespace tarnd {

enum class CreateMode : std::int64_t { create = 0, update = 1, createOrUpdate = 2 };

struct PutOptions {
    CreateMode mode = CreateMode::createOrUpdate;
    /// False: the current version's content is replaced under its id and label.
    bool createNewVersion = false;
    /// The content is short and on its way: it may be taken before it is certain that it will be accepted.
    bool isComing = false;
    /// What the SHA-256 of the content has to be, in base64 without padding; empty: whatever it is.
    std::string digest = {};
    Condition condition = {}; ///< on what is there before
};

} // namespace tarnd
