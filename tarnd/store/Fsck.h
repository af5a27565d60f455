#pragma once

#include "tarnd/store/Engine.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tarnd {

struct FsckReport {
    std::uint64_t contents = 0;        ///< contents read and compared
    std::uint64_t bytes = 0;           ///< their bytes
    std::uint64_t items = 0;           ///< files and folders checked
    std::vector<std::string> problems; ///< one sentence each; empty: all is well

    bool clean() const { return problems.empty(); }
};

/// Verifies size and SHA-256 of every content, looks for contents without a version and for faults of the
/// tree. Changes nothing. Blocks for as long as reading everything takes.
/// @param isBesideOthers  others may be writing and deleting
FsckReport fsck(Engine engine, bool isBesideOthers = false);

} // namespace tarnd
