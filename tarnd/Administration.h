#pragma once

#include "tarnd/store/Store.h"

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

namespace tarnd {

/// What works beside a running service: `tarnd user`, `tarnd session` and `tarnd link`.
class Administration {
public:
    explicit Administration(CLI::App& app);

    /// Does what was parsed; false when that was none of these.
    bool run();

private:
    using Action = std::function<void(Store&)>;

    /// A command of a group, with the options that every one has.
    CLI::App* add(CLI::App* group, const std::string& name, const std::string& help, Action action,
                  Purpose purpose = Purpose::administer);

    void addUser(CLI::App& app);
    void addSession(CLI::App& app);
    void addLink(CLI::App& app);

    struct Command {
        CLI::App* command;
        Action action;
        Purpose purpose;
    };

    std::vector<Command> commands;
    StoreOptions store;
    std::string name; ///< of the user, or id of the session or link
    std::string user;
    std::uint64_t bytes = 0;
    bool force = false;
    bool longList = false;
};

} // namespace tarnd
