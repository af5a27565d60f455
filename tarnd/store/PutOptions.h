#pragma once

#include <cstdint>

namespace tarnd {

enum class CreateMode : std::int64_t { create = 0, update = 1, createOrUpdate = 2 };

struct PutOptions {
    CreateMode mode = CreateMode::createOrUpdate;
    /// False: the current version's content is replaced under its id and label.
    bool createNewVersion = false;
    /// The content is short and on its way: it may be taken before it is certain that it will be accepted.
    bool isComing = false;
};

} // namespace tarnd
