// A path that is split after decoding, or decoded twice, reaches another item than the one it names.
#include "tarnd/http/Call.h"

#include <gtest/gtest.h>

namespace tarnd::test {
namespace {

TEST(PathOfAUrl, IsSplitFirstAndThenDecodedOnce)
{
    const char* const decoded[][2] = {
        {"/", "/"}, {"/a%20b/c+d", "/a b/c+d"}, {"/%2525", "/%25"}, {"/a%3Fb%23c", "/a?b#c"}};
    for (const auto& [encoded, path] : decoded)
        EXPECT_EQ(pathOf(encoded).text(), path);
    for (const auto* refused :
         {"", "a", "/a/", "/%2e%2E", "/a%2Fb", "/a%00b", "/a%0Ab", "/%", "/%4", "/%zz", "/%C3"})
        EXPECT_THROW(pathOf(refused), ServiceError) << refused;
}

} // namespace
} // namespace tarnd::test
