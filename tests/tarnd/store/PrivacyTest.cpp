#include "tests/support/TarndProcess.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

/// What is stored belongs to the user who runs the service, whatever the shell that started it allows.
namespace tarnd::test {

TEST(PrivacyTest, NobodyElseMayOpenAnythingThatIsStored)
{
    const auto before = ::umask(0);
    TarndProcess service;
    service.addUser("alice");
    service.start();
    ::umask(before);
    std::size_t seen = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(service.dataDir())) {
        ++seen;
        EXPECT_EQ(entry.status().permissions() & static_cast<std::filesystem::perms>(077),
                  std::filesystem::perms::none)
            << entry.path();
    }
    EXPECT_GT(seen, 256U);
    EXPECT_EQ(service.terminate(), 0);
}

} // namespace tarnd::test
