#include "tests/tarnd/access/HostileTexts.h"

namespace tarnd::test {

namespace {

constexpr bool name = true;
constexpr bool refused = false;

std::string times(const std::string& text, std::size_t count)
{
    std::string all;
    for (std::size_t i = 0; i < count; ++i)
        all += text;
    return all;
}

} // namespace

const std::vector<HostileText>& hostileTexts()
{
    static const std::vector<HostileText> texts = {
        // Steps to other folders, as such and as they look to a careless reader.
        {"empty", "", refused},
        {"dot", ".", refused},
        {"two dots", "..", refused},
        {"three dots", "...", name},
        {"dots and space", ".. ", name},
        {"trailing dot", "a.", name},
        {"hidden", ".hidden", name},
        {"slash", "a/b", refused},
        {"only slash", "/", refused},
        {"up and away", "../../../../tmp/tarn-escaped", refused},
        {"absolute", "/etc/passwd", refused},
        {"up inside", "x/../y", refused},
        {"backslashes", "..\\..\\x", name},
        {"drive", "C:\\boot.ini", name},
        {"network share", "\\\\server\\share", name},
        {"device", "CON", name},
        {"home", "~root", name},
        {"encoded dots", "%2e%2e", name},
        {"encoded slash", "a%2Fb", name},
        {"encoded NUL", "a%00b", name},
        {"broken escape", "%zz%", name},
        {"full-width slash",
         "a\xEF\xBC\x8F"
         "b",
         name},
        {"full-width dots", "\xEF\xBC\x8E\xEF\xBC\x8E", name},
        {"two-dot leader", "\xE2\x80\xA5", name},

        // Bytes that are no text.
        {"NUL", std::string("a\0b", 3), refused},
        {"only NUL", std::string("\0", 1), refused},
        {"overlong slash", "\xC0\xAF", refused},
        {"overlong dots", "\xE0\x80\xAE\xE0\x80\xAE", refused},
        {"overlong NUL", "a\xC0\x80", refused},
        {"lone continuation", "\x80", refused},
        {"cut sequence", "a\xE2\x82", refused},
        {"not UTF-8", "\xFF\xFE", refused},
        {"Latin-1", "caf\xE9", refused},
        {"surrogate", "\xED\xA0\x80", refused},
        {"surrogate pair", "\xED\xA0\xBD\xED\xB8\x80", refused},
        {"beyond Unicode", "\xF4\x90\x80\x80", refused},
        {"five bytes", "\xF8\x88\x80\x80\x80", refused},
        {"no character", "\xEF\xBF\xBF", refused},
        {"swapped byte order mark", "\xEF\xBF\xBE", refused},

        // Characters that act.
        {"line feed", "a\nb", refused},
        {"line break", "a\r\nSet-Cookie: x=y", refused},
        {"request in a name", "a HTTP/1.1\r\nHost: x\r\n\r\nGET /", refused},
        {"tab", "a\tb", refused},
        {"escape", "\x1B[2J", refused},
        {"delete", "\x7F", refused},
        {"next line", "\xC2\x85", refused},
        {"line separator",
         "a\xE2\x80\xA8"
         "b",
         name},
        {"right-to-left override", "\xE2\x80\xAEgpj.exe", name},
        {"zero width",
         "a\xE2\x80\x8B"
         "b",
         name},
        {"byte order mark",
         "\xEF\xBB\xBF"
         "a",
         name},
        {"composed", "\xC3\xA9", name},
        {"decomposed", "e\xCC\x81", name},
        {"Latin a", "a", name},
        {"Latin A", "A", name},
        {"Cyrillic a", "\xD0\xB0", name},
        {"sharp s",
         "stra\xC3\x9F"
         "e",
         name},
        {"emoji", "\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9", name},
        {"space", " ", name},
        {"spaces around", " a ", name},

        // Text that means something to a program on the way.
        {"script", "<script>alert(1)</script>", refused},
        {"script without slash", "<script>alert(1)<script>", name},
        {"image", "\"><img src=x onerror=alert(1)>", name},
        {"attribute", "' onmouseover='alert(1)", name},
        {"scheme", "javascript:alert(1)", name},
        {"end of section", "]]>", name},
        {"comment", "<!--", name},
        {"entities", "&lt;&amp;&#x2e;&unknown;", name},
        {"doctype", "<!DOCTYPE a [<!ENTITY b SYSTEM \"file:\">]>", name},
        {"quotes", "\"'`", name},
        {"query", "a?createMode=UPDATE&b#c", name},
        {"plus", "a+b %2B", name},
        {"semicolons", "a;b=c", name},
        {"SQL", "'; DROP TABLE nodes; --", name},
        {"SQL condition", "' OR '1'='1", name},
        {"wildcards", "%_*?[a-z]", name},
        {"parameters", "$1 :1 ?1", name},
        {"shell", "$(reboot)`reboot`|reboot", name},
        {"option", "--data", name},
        {"format", "%s%n%1$p", name},
        {"template", "${jndi:x}{{7*7}}", name},

        // Sizes.
        {"255 bytes", std::string(255, 'n'), name},
        {"256 bytes", std::string(256, 'n'), refused},
        {"255 bytes in 85 characters", times("\xE2\x82\xAC", 85), name},
        {"258 bytes in 86 characters", times("\xE2\x82\xAC", 86), refused},
        {"5000 bytes", std::string(5000, 'n'), refused},
    };
    return texts;
}

} // namespace tarnd::test
