// A name that no XML parser can read would make a whole folder unlistable.
#include "tarnd/http/XmlWriter.h"

#include <gtest/gtest.h>

namespace tarnd {
namespace {

TEST(XmlWriter, CarriesAnyTextWithoutBreakingTheDocument)
{
    struct Case {
        std::string_view text, written;
    };

    const Case cases[] = {
        {"<a b=\"c\">&'", "&lt;a b=\"c\"&gt;&amp;'"},
        {"]]>", "]]&gt;"},
        {"tab\tline\ncr\r", "tab\tline\ncr&#13;"},
        {"\x01 \x1f", "\xEF\xBF\xBD \xEF\xBF\xBD"},
        {"\xC3\xA4 \xF0\x9F\x98\x80 \xC2\x80", "\xC3\xA4 \xF0\x9F\x98\x80 \xC2\x80"},
        {"\xEF\xBF\xBF\xEF\xBF\xBE", "\xEF\xBF\xBD\xEF\xBF\xBD"},
        {"\xFFz\xC3", "\xEF\xBF\xBDz\xEF\xBF\xBD"},
        {"\xED\xA0\x80!", "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD!"},
    };
    for (const auto& [text, written] : cases) {
        XmlWriter xml("R");
        xml.text("t", text);
        EXPECT_EQ(xml.finish(),
                  R"(<?xml version="1.0" encoding="UTF-8"?><R><t>)" + std::string(written) + "</t></R>");
    }
}

} // namespace
} // namespace tarnd
