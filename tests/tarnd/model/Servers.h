#pragma once

#include "tests/support/TarndProcess.h"

#include <memory>
#include <string>
#include <vector>

namespace tarnd::test {

/// One tarnd, or two in front of the same database when that is PostgreSQL.
class Servers {
public:
    Servers()
    {
        service.start();
        addresses.push_back(service.url());
        if (!service.usesPostgres()) return;
        second = TarndProcess::beside(service);
        second->start();
        addresses.push_back(second->url());
    }

    TarndProcess& first() { return service; }

    const std::vector<std::string>& urls() const { return addresses; }

    /// Ends them in order and checks the data. @returns what is wrong, empty when nothing is
    std::string endAndCheck()
    {
        std::string wrong;
        for (auto* each : {second.get(), &service}) {
            if (!each) continue;
            wrong += each->errors();
            if (each->terminate() != 0) wrong += "A tarnd did not end in order.\n";
        }
        const auto checked = service.run({"fsck"});
        return checked.exitCode == 0 ? wrong : wrong + checked.out + checked.err;
    }

private:
    TarndProcess service;
    std::unique_ptr<TarndProcess> second;
    std::vector<std::string> addresses;
};

} // namespace tarnd::test
