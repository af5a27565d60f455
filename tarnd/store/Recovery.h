#pragma once

#include "tarnd/store/Engine.h"

#include <cstddef>
#include <functional>

namespace tarnd {

struct RecoveryReport {
    std::size_t abandonedUploads = 0; ///< temporary files removed
    std::size_t orphanedContents = 0; ///< contents without a row removed
};

/// Puts contents and rows back in step before the service listens: removes what uploads of dead processes
/// left and contents that no row names. Other live processes over the same data lose nothing by it.
/// @throws ServiceError internal, its detail naming path and version, when a row's content is missing
RecoveryReport recover(Engine engine);

/// The same while services work, a part of the contents at a time; says nothing of contents that are missing.
/// @param shallEnd  asked now and then
RecoveryReport sweep(Engine engine, const std::function<bool()>& shallEnd);

} // namespace tarnd
