#include "tarnd/store/ItemPath.h"
#include "tarnd/store/ServiceError.h"

#include <gtest/gtest.h>

#include <string>

/// A path that is split after decoding, or decoded twice, reaches another item than the one it names.
namespace tarnd {

namespace {

struct PathCase {
    std::string encoded;
    std::string decoded; ///< names joined by '|'
};

std::string joined(const ItemPath& path)
{
    std::string text;
    for (const auto& name : path.names())
        text += (text.empty() ? "" : "|") + name;
    return text;
}

} // namespace

TEST(ItemPathTest, AcceptedPathsKeepTheirNamesByteForByte)
{
    const PathCase cases[] = {
        {"/", ""},
        {"/a", "a"},
        {"/a%20b/c+d", "a b|c+d"},
        {"/%2525", "%25"},
        {"/a%3Fb%23c", "a?b#c"},
        {"/%c3%A9", "\xc3\xa9"},
        {"/e%CC%81", "e\xcc\x81"},
        {"/...", "..."},
        {"/.hidden/%20", ".hidden| "},
        {"/%F0%9F%98%80", "\xf0\x9f\x98\x80"},
        {"/" + std::string(255, 'n'), std::string(255, 'n')},
    };
    for (const auto& [encoded, decoded] : cases)
        EXPECT_EQ(joined(ItemPath::fromUrl(encoded)), decoded) << encoded;
    EXPECT_EQ(joined(ItemPath::fromText("/a%20b/c d")), "a%20b|c d");
    EXPECT_EQ(ItemPath::fromText("/a/b").text(), "/a/b");
    EXPECT_EQ(ItemPath::fromText("/a").parent().text(), "/");
}

TEST(ItemPathTest, RefusedPaths)
{
    using namespace std::string_literals;
    const std::string refused[] = {
        "",
        "a",
        "//",
        "/a/",
        "/a//b",
        "/.",
        "/..",
        "/a/../b",
        "/%2e%2E",
        "/%2e",
        "/a%2Fb",
        "/a%00b",
        "/a\0b"s,
        "/a%0Ab",
        "/%7F",
        "/%C2%85",
        "/%EF%BF%BF",
        "/%",
        "/%4",
        "/%zz",
        "/a%2",
        "/%C3",
        "/%C0%AF",
        "/%ED%A0%80",
        "/%F5%80%80%80",
        "/\xff",
        "/" + std::string(256, 'n'),
    };
    for (const auto& path : refused) {
        try {
            ItemPath::fromUrl(path);
            ADD_FAILURE() << "accepted " << path;
        } catch (const ServiceError& error) {
            EXPECT_EQ(error.kind(), ServiceError::Kind::badRequest) << path;
        }
    }
    for (const auto* path : {"", "a", "/a/", "/a/./b", "/a\nb"})
        EXPECT_THROW(ItemPath::fromText(path), ServiceError) << path;
}

} // namespace tarnd
