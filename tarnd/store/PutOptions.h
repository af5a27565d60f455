#pragma once

#include <cstdint>

namespace tarnd {

enum class CreateMode : std::int64_t { create = 0, update = 1, createOrUpdate = 2 };

struct PutOptions {
    CreateMode mode = CreateMode::createOrUpdate;
    /// False: the current version's content is replaced under its id and label.
    bool createNewVersion = false;
};

} // namespace tarnd
