#pragma once

#include "tarnd/store/Store.h"

#include <CLI/CLI.hpp>
#include <string>

namespace tarnd {

/// `tarnd prune`: deletes old versions beside a running service.
class Prune {
public:
    explicit Prune(CLI::App& app);

    /// Does it when it was parsed; false when something else was.
    bool run();

private:
    CLI::App* command;
    StoreOptions store;
    std::string auditLogFile;
    std::string user;
    std::int64_t keep = 0;
    std::int64_t age = 0; ///< milliseconds
    bool dryRun = false;
};

} // namespace tarnd
