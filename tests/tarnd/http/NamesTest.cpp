// Names from the wire: one that escapes its folder, ends a text early or cannot be shown in a listing is a
// hole.
#include "tests/tarnd/http/ServiceTest.h"

namespace tarnd::test {
namespace {

using Names = ServiceTest;

std::string repeated(std::string_view text, int times)
{
    std::string all;
    for (int i = 0; i < times; ++i)
        all += text;
    return all;
}

TEST_F(Names, ThatCouldMeanSomethingElseAreRefused)
{
    ASSERT_EQ(asAlice("PUT", "/service/v1/folders/d").status, 200);
    for (const std::string& name :
         {std::string("."),         std::string(".."),        std::string("%2e"),     std::string("%2E%2e"),
          std::string(""),          std::string("a%2Fb"),     std::string("%2F"),     std::string("a%00b"),
          std::string("a%0Ab"),     std::string("a%0D"),      std::string("%1B"),     std::string("%7F"),
          std::string("%C2%85"),    std::string("%FF"),       std::string("%C3%28"),  std::string("%C0%AF"),
          std::string("%ED%A0%80"), std::string("%EF%BF%BF"), std::string("%"),       std::string("%4"),
          std::string("%zz"),       std::string(256, 'x'),    repeated("%C3%A4", 128)}) {
        EXPECT_EQ(asAlice("PUT", "/service/v1/files/d/" + name + "?createMode=CREATE", "x").status, 400)
            << name;
        EXPECT_EQ(asAlice("PUT", "/service/v1/folders/d/" + name).status, 400) << name;
        if (name.find("%2F") == std::string::npos) {
            const auto query = "targetPath=%2Fd%2F" + name + "&targetBucket=&moveTargetOverwrite=false";
            EXPECT_EQ(asAlice("PUT", "/service/v1/filesystem/d?" + query).status, 400) << name;
        }
    }
    const auto listing = asAlice("GET", "/service/v1/folders/d").body;
    EXPECT_NE(listing.find("<Files></Files><Folders></Folders>"), std::string::npos) << listing;
}

TEST_F(Names, ThatOnlyLookDangerousAreKeptByteForByte)
{
    struct Case {
        std::string encoded, inXml;
    };

    const Case cases[] = {
        {"%20", " "},
        {"...", "..."},
        {"a+b", "a+b"},
        {"100%25", "100%"},
        {"%252F", "%2F"},
        {"%3Cscript%3E%22%26%27", "&lt;script&gt;\"&amp;'"},
        {"]]%3E", "]]&gt;"},
        {"%5C..%5C", "\\..\\"},
        {"-rf%20~;$(x)", "-rf ~;$(x)"},
        {"%3F%23", "?#"},
        {"%C3%A9", "\xC3\xA9"},
        {"e%CC%81", "e\xCC\x81"},
        {"%F0%9F%98%80", "\xF0\x9F\x98\x80"},
        {std::string(255, 'n'), std::string(255, 'n')},
    };
    for (const auto& [encoded, inXml] : cases)
        put("/" + encoded, encoded);
    const auto listing = asAlice("GET", "/service/v1/folders/").body;
    for (const auto& [encoded, inXml] : cases) {
        EXPECT_EQ(asAlice("GET", "/service/v1/files/" + encoded).body, encoded);
        EXPECT_NE(listing.find("<Name>" + inXml + "</Name>"), std::string::npos) << encoded;
    }
}

TEST_F(Names, InTheQueryAreDecodedOnceAndAPlusIsAPlus)
{
    put("/a%20b", "1");
    ASSERT_EQ(asAlice("PUT", "/service/v1/filesystem/a%20b?targetPath=/c+%2B%20%2525&targetBucket=&"
                             "moveTargetOverwrite=false")
                  .status,
              200);
    EXPECT_EQ(asAlice("GET", "/service/v1/files/c++%20%2525").body, "1");
}

} // namespace
} // namespace tarnd::test
