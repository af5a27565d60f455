// Replies that no honest service sends must fail the request, not the process: nesting, names and nodes
// without end, external entities; and everything below the limits must read as the plain DOM parser reads it.
#include "tarn/protocol/ReplyXml.h"

#include <Poco/DOM/DOMParser.h>
#include <Poco/DOM/DOMWriter.h>
#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>
#include <string>

namespace {

using namespace connector::tarn;

std::string nested(std::size_t depth, bool closed = true)
{
    std::string text;
    for (std::size_t i = 0; i < depth; ++i)
        text += "<a>";
    text += "x";
    for (std::size_t i = 0; closed && i < depth; ++i)
        text += "</a>";
    return text;
}

std::string manyNames(int count)
{
    std::string text = "<r>";
    for (int i = 1; i < count; ++i)
        text += "<n" + std::to_string(i) + "/>";
    return text + "</r>";
}

bool parses(const std::string& text)
{
    try {
        parseXml(text);
        return true;
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "TARN error: " + text);
        return false;
    }
}

std::string written(Poco::XML::Document& document)
{
    std::ostringstream out;
    Poco::XML::DOMWriter().writeNode(out, &document);
    return out.str();
}

TEST(ReplyXml, BoundsDepthNamesAndExpansion)
{
    EXPECT_TRUE(parses(nested(256)));
    EXPECT_FALSE(parses(nested(257)));
    EXPECT_FALSE(parses(nested(100'000)));
    EXPECT_FALSE(parses(nested(100'000, false)));
    EXPECT_TRUE(parses(manyNames(500)));
    EXPECT_FALSE(parses(manyNames(501)));
    EXPECT_FALSE(parses(manyNames(5000)));
    std::string attributes = "<r";
    for (int i = 0; i < 600; ++i)
        attributes += " a" + std::to_string(i) + "=''";
    EXPECT_FALSE(parses(attributes + "/>"));
    const std::string longName(4097, 'n');
    EXPECT_FALSE(parses("<" + longName + "/>"));
    EXPECT_FALSE(parses("<a xmlns='" + longName + "'/>"));
}

/// A document that declares `count` entities, each by the one before, and calls the last.
std::string chained(int count)
{
    std::string text = "<!DOCTYPE r [<!ENTITY a1 'x'>";
    for (int i = 2; i <= count; ++i)
        text += "<!ENTITY a" + std::to_string(i) + " '&a" + std::to_string(i - 1) + ";'>";
    return text + "]><r>&a" + std::to_string(count) + ";</r>";
}

TEST(ReplyXml, BoundsEntitiesAndWhatTheyExpandTo)
{
    EXPECT_TRUE(parses("<!DOCTYPE r><r/>"));
    EXPECT_TRUE(parses(chained(100)));
    EXPECT_FALSE(parses(chained(101)));
    EXPECT_FALSE(parses(chained(26'000)));

    const ReplyLimits small{.bytes = 1000};
    const std::string head = "<!DOCTYPE r [<!ENTITY e '" + std::string(100, 'x') + "'>]>";
    for (const std::string use : {"<r>&e;</r>", "<r a='&e;'/>"}) {
        std::string text = head + use;
        EXPECT_NO_THROW(parseXml(text, small)) << text;
        for (int i = 0; i < 10; ++i)
            text.insert(text.find("&e;"), "&e;");
        EXPECT_THROW(parseXml(text, small), std::runtime_error) << text;
    }
}

TEST(ReplyXml, RepeatsNoMoreOfABodyThanTheLimit)
{
    const std::string text = "<r>" + std::string(100, 'x') + "</r>";
    EXPECT_NO_THROW(parseXml(text, {.bytes = text.size()}));
    try {
        parseXml(text, {.bytes = text.size() - 1});
        FAIL();
    } catch (const std::runtime_error& error) {
        EXPECT_EQ(error.what(), "TARN error: " + text.substr(0, text.size() - 1));
    }
}

TEST(ReplyXml, RefusesMoreNodesThanMemoryHolds)
{
    std::string text = "<r>";
    for (int i = 0; i < 3'000'000; ++i)
        text += "<a/>";
    EXPECT_FALSE(parses(text + "</r>"));
}

TEST(ReplyXml, BoundsTheNumberOfNodesOfEveryKind)
{
    const ReplyLimits ten{.nodes = 10};
    for (const char* node : {"<a/>", "<a b='c'/>", "<!-- c -->", "<?p i?>", "text<a/>", "<![CDATA[x]]>"}) {
        std::string text = "<r>" + std::string(node) + "</r>";
        EXPECT_NO_THROW(parseXml(text, ten)) << text;
        for (int i = 0; i < 10; ++i)
            text.insert(3, node);
        EXPECT_THROW(parseXml(text, ten), std::runtime_error) << text;
    }
}

TEST(ReplyXml, ReadsNoFileThatAReplyNames)
{
    EXPECT_FALSE(parses("<!DOCTYPE r [<!ENTITY e SYSTEM 'file:///etc/hostname'>]><r>&e;</r>"));
    auto document = parseXml("<!DOCTYPE r [<!ENTITY % e SYSTEM 'file:///etc/hostname'> %e;]><r>kept</r>");
    EXPECT_EQ(documentText(*document, "r"), "kept");
}

void readsLikePoco(const std::string& text)
{
    Poco::XML::DOMParser poco;
    Poco::AutoPtr<Poco::XML::Document> expected(poco.parseString(text));
    EXPECT_EQ(written(*parseXml(text)), written(*expected));
}

TEST(ReplyXml, ReadsLikePocoBelowTheLimits)
{
    for (const char* text :
         {"<r a='1' b='&lt;'>x<!-- c --><![CDATA[<y>]]>&amp;<?pi data?><n:e xmlns:n='u' n:k='v'/>\n</r>",
          "<?xml version='1.0' encoding='ISO-8859-1'?><r>\xe4</r>",
          "<?xml version='1.0' encoding='windows-1252'?><r>\x80</r>",
          "<!DOCTYPE r [<!ENTITY e 'text'>]><r>&e;</r>", "<r>\n<a>x &gt; y</a><b/>\n</r>",
          "\xef\xbb\xbf<r>&#228;\n\n<\xc3\xa4/></r>", "<r><a>1</a><a b='2'/><a>3</a></r>",
          "<r><a>1</a><![CDATA[2]]></r>", "<r><a>1</a></r><!-- end -->", "<r><a>1</a><?pi data?></r>",
          "<r><a>1</a><n:a xmlns:n='u'>2</n:a></r>"}) {
        // What was read before on this thread, or could not be, makes no difference.
        readsLikePoco(text);
        for (const char* broken : {"<r><a>", "<r><n:a></r>", "<r><a></b></r>", "<r/><r/>", "", "text"})
            EXPECT_FALSE(parses(broken));
        readsLikePoco(text);
    }
    readsLikePoco("<r>" + std::string(100'000, 'x') + "</r>");
    for (int i = 0; i < 2000; ++i) // together more names than a pool has room for
        readsLikePoco("<r><n" + std::to_string(i) + "/></r>");
}

TEST(ReplyXml, FindsExactlyOne)
{
    auto document = parseXml("<r><a>1<b>2</b></a><c/><d><c>3</c></d><e></e></r>");
    EXPECT_EQ(documentText(*document, "a"), "12") << "all text below";
    EXPECT_EQ(documentText(*document, "c", "?"), "?") << "two";
    EXPECT_EQ(documentText(*document, "x", "?"), "?") << "none";
    EXPECT_EQ(documentText(*document, "e", "?"), "") << "one that is empty";
    EXPECT_EQ(documentText(*document, "r"), "123") << "the root counts in a document";
    const auto& root = *document->documentElement();
    EXPECT_EQ(childText(root, "r", "?"), "?") << "but not below itself";
    EXPECT_EQ(childText(*elementsNamed(root, "d").front(), "c"), "3");
    EXPECT_EQ(childText(*root.firstChild()->firstChild(), "b", "?"), "?") << "a text node has no elements";
    EXPECT_EQ(elementsNamed(root, "c").size(), 2u);
    EXPECT_EQ(childElements(&root).size(), 4u);
    EXPECT_TRUE(childElements(nullptr).empty());
}

} // namespace
