#include "tests/tarnd/model/Servers.h"

namespace tarnd::test {

Servers::Servers()
{
    service.start();
    addresses.push_back(service.url());
    if (!service.usesPostgres()) return;
    second = TarndProcess::beside(service);
    second->start();
    addresses.push_back(second->url());
}

std::string Servers::endAndCheck()
{
    auto wrong = service.errors();
    if (second) {
        wrong += second->errors();
        if (second->terminate() != 0) wrong += "The second tarnd did not end in order.\n";
    }
    if (service.terminate() != 0) wrong += "tarnd did not end in order.\n";
    const auto checked = service.run({"fsck"});
    return checked.exitCode == 0 ? wrong : wrong + checked.out + checked.err;
}

} // namespace tarnd::test
