// cookbook PAGE: runs the snippets of a page, with what its README says they can count on.
#include "tests/docs/Page.h"

#include <gtest/gtest.h>

int main(int argc, char** argv)
{
    testing::InitGoogleTest(&argc, argv);
    const auto& page = pages.at(argv[1]);
    tarntesting::TestService service;
    connector::host::Tarn tarn(service.url(), {"alice", service.addUser("alice")});
    page.run(service, tarn, tarn.host());
    return page.hasTests ? RUN_ALL_TESTS() : 0;
}
