#pragma once

#include "tarnd/store/Store.h"

#include <CLI/CLI.hpp>

namespace tarnd {

/// `tarnd move`: a store that outgrows its machine.
class Move {
public:
    explicit Move(CLI::App& app);

    /// Does what was parsed; false when that was another command.
    bool run();

private:
    CLI::App* const command;
    StoreOptions target; ///< with the directory of the source
};

} // namespace tarnd
