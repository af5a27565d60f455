#pragma once

#include <cstdint>

namespace connector::tarn {

/// Which files something may be written to. Parameter "createMode".
enum class CreateMode : std::uint32_t {
    create = 0,         ///< "CREATE": only one that does not exist
    update = 1,         ///< "UPDATE": only one that exists
    createOrUpdate = 2, ///< "CREATE_OR_UPDATE"
};

} // namespace connector::tarn
