#include "tarnd/store/ItemPath.h"
#include "tarnd/store/ServiceError.h"

#include <gtest/gtest.h>

#include <string>

/// A path that can be read in two ways reaches another item than the one it names.
namespace tarnd {

TEST(ItemPathTest, AcceptedPathsKeepTheirNamesByteForByte)
{
    for (const std::string path :
         {"/", "/a", "/a%20b/c d", "/...", "/.hidden/ ", "/\xc3\xa9/e\xcc\x81", "/\xf0\x9f\x98\x80"})
        EXPECT_EQ(ItemPath::fromText(path).text(), path);
    EXPECT_EQ(ItemPath::fromText("/" + std::string(255, 'n')).name().size(), 255U);
    EXPECT_EQ(ItemPath::fromText("/a/b").names().size(), 2U);
    EXPECT_EQ(ItemPath::fromText("/a").parent().text(), "/");
}

TEST(ItemPathTest, RefusedPaths)
{
    using namespace std::string_literals;
    for (const auto& path : {""s, "a"s, "//"s, "/a/"s, "/a//b"s, "/."s, "/.."s, "/a/../b"s, "/a\0b"s,
                             "/a\nb"s, "/\x7f"s, "/\xc2\x85"s, "/\xef\xbf\xbf"s, "/\xc3"s, "/\xc0\xaf"s,
                             "/\xed\xa0\x80"s, "/\xf5\x80\x80\x80"s, "/\xff"s, "/" + std::string(256, 'n')})
        EXPECT_THROW(ItemPath::fromText(path), ServiceError) << path;
    EXPECT_THROW(ItemPath({"a/b"}), ServiceError) << "a separator that came in encoded";
}

} // namespace tarnd
