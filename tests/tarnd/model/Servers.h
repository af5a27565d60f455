#pragma once

#include "tests/support/TarndProcess.h"

#include <memory>
#include <string>
#include <vector>

namespace tarnd::test {

/// One tarnd, or two in front of the same database when that is PostgreSQL.
class Servers {
public:
    Servers();

    TarndProcess& first() { return service; }

    const std::vector<std::string>& urls() const { return addresses; }

    /// Ends them in order and checks the data. @returns what is wrong, empty when nothing is
    std::string endAndCheck();

private:
    TarndProcess service;
    std::unique_ptr<TarndProcess> second;
    std::vector<std::string> addresses;
};

} // namespace tarnd::test
