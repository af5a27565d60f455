// Texts made to be mistaken, wherever a client may put one. Each is kept byte for byte or refused; none may
// reach the file system, the database's language, another line of the protocol or a browser's parser.
#include "tests/tarnd/access/SharedWorld.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <regex>
#include <set>

namespace tarnd::test {
namespace {

using Names = std::set<std::string>;
using namespace std::string_literals;

std::string euros(std::size_t count)
{
    std::string text;
    while (text.size() < 3 * count)
        text += "\xE2\x82\xAC";
    return text;
}

Names together(std::initializer_list<Names> groups)
{
    Names all;
    for (const auto& group : groups)
        all.insert(group.begin(), group.end());
    return all;
}

/// May name an item.
const Names names = together({
    // Steps to other folders, as they look to a careless reader.
    {"...", ".. ", "a.", ".hidden", "..\\..\\x", "C:\\boot.ini", "\\\\server\\share", "CON", "~root"},
    {"%2e%2e", "a%2Fb", "a%00b", "%zz%", "a\uFF0Fb", "\uFF0E\uFF0E", "\u2025"},
    // Characters that are not seen, or look like others.
    {"a\u2028b", "\u202Egpj.exe", "a\u200Bb", "\uFEFFa", "\u00E9", "e\u0301", "a", "A", "\u0430"},
    {"stra\u00DFe", "\U0001F468\u200D\U0001F469", " ", " a "},
    // Text that means something to a program on the way.
    {"<script>alert(1)<script>", "\"><img src=x onerror=alert(1)>", "' onmouseover='alert(1)", "\"'`"},
    {"javascript:alert(1)", "]]>", "<!--", "&lt;&amp;&#x2e;&unknown;"},
    {"<!DOCTYPE a [<!ENTITY b SYSTEM \"file:\">]>", "a?createMode=UPDATE&b#c", "a+b %2B", "a;b=c"},
    {"'; DROP TABLE nodes; --", "' OR '1'='1", "%_*?[a-z]", "$1 :1 ?1", "$(reboot)`reboot`|reboot"},
    {"--data", "%s%n%1$p", "${jndi:x}{{7*7}}", std::string(255, 'n'), euros(85)},
});

/// May not.
const Names refused = together({
    {"", ".", "..", "a/b", "/", "../../../../tmp/tarn-escaped", "/etc/passwd", "x/../y"},
    // Bytes that are no text.
    {"a\0b"s, "\0"s, "\xC0\xAF", "\xE0\x80\xAE\xE0\x80\xAE", "a\xC0\x80", "\x80", "a\xE2\x82", "\xFF\xFE"},
    {"caf\xE9", "\xED\xA0\x80", "\xED\xA0\xBD\xED\xB8\x80", "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80"},
    // Characters that act.
    {"a\nb", "a\r\nSet-Cookie: x=y", "a HTTP/1.1\r\nHost: x\r\n\r\nGET /", "a\tb", "\x1B[2J", "\x7F"},
    {"\xC2\x85", "\xEF\xBF\xBF", "\xEF\xBF\xBE", "<script>alert(1)</script>"},
    {std::string(256, 'n'), euros(86), std::string(5000, 'n')},
});

class Hostile : public ::testing::Test {
protected:
    Hostile()
    {
        const auto token = service.addUser("alice");
        service.start();
        user = std::make_unique<ServiceUser>(service.url());
        require(user->login(token));
        beside = entriesOf(service.dataDir().parent_path());
    }

    /// Whatever the test sent: the service lives, and nothing lies where it does not belong.
    void TearDown() override
    {
        EXPECT_EQ(user->ping().status, 200);
        EXPECT_EQ(service.errors(), "");
        EXPECT_EQ(entriesOf(service.dataDir().parent_path()), beside);
        EXPECT_FALSE(std::filesystem::exists("/tmp/tarn-escaped"));
        for (const auto& entry : std::filesystem::recursive_directory_iterator(service.dataDir()))
            EXPECT_FALSE(names.contains(entry.path().filename())) << entry.path();
        ASSERT_EQ(service.terminate(), 0);
        const auto checked = service.run({"fsck"});
        EXPECT_EQ(checked.exitCode, 0) << checked.out << checked.err;
    }

    static Names entriesOf(const std::filesystem::path& folder)
    {
        Names found;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            found.insert(entry.path().filename());
        return found;
    }

    template <class Test>
    static void forEachText(Test&& test)
    {
        for (const auto* texts : {&names, &refused})
            for (const auto& text : *texts) {
                SCOPED_TRACE(percentEncoded(text));
                test(text, texts == &names);
            }
    }

    /// The names of the folder's entries: `list` is "Files" or "Folders".
    Names listed(const std::string& folder, const std::string& list)
    {
        Names found;
        const auto document = parseXml(require(user->list({"", folder})).body);
        for (const auto& entry : document.child(list).children)
            found.insert(entry.only("Name"));
        return found;
    }

    /// The status of the reply to these bytes; 400 when the service just closes the connection.
    int rawStatus(const std::string& request)
    {
        Wire wire(service.port());
        wire.send(request);
        wire.endOfRequest();
        const auto reply = wire.receive();
        return reply ? reply->status : 400;
    }

    std::string linkTo(const std::string& path)
    {
        return parseXml(require(user->link({"", path})).body)
            .only("PublicAccessUrl")
            .substr(service.url().size());
    }

    TarndProcess service;
    std::unique_ptr<ServiceUser> user;
    Names beside;
};

TEST_F(Hostile, NamesAreKeptByteForByteOrRefused)
{
    for (const std::string folder : {"/put", "/made", "/moved"})
        require(user->createFolder({"", folder}));
    forEachText([&](const std::string& text, bool isName) {
        const auto encoded = percentEncoded(text);
        const int expected = isName ? 200 : 400;
        EXPECT_EQ(
            user->send("PUT", "/service/v1/files/put/" + encoded + "?createMode=CREATE", encoded).status,
            expected);
        EXPECT_EQ(user->send("PUT", "/service/v1/folders/made/" + encoded).status, expected);
        require(user->put({"", "/source"}, encoded, "CREATE_OR_UPDATE"));
        const auto moved = user->move({"", "/source"}, {"", "/moved/" + text}, false).status;
        // The name of a folder that is not there stands before a slash.
        EXPECT_TRUE(moved == expected || (moved == 409 && !isName && text.find('/') != text.npos)) << moved;
        if (!isName) return;
        EXPECT_EQ(user->read({"", "/put/" + text}).body, encoded);
        EXPECT_EQ(parseXml(user->attributes({"", "/made/" + text}).body).only("Name"), text);
        EXPECT_EQ(parseXml(user->versions({"", "/put/" + text}).body).only("Name"), text);
    });
    EXPECT_EQ(listed("/put", "Files"), names);
    EXPECT_EQ(listed("/moved", "Files"), names);
}

TEST_F(Hostile, RequestLinesAreUnderstoodLiterallyOrRefused)
{
    require(user->createFolder({"", "/raw"}));
    forEachText([&](const std::string& text, bool) {
        for (const std::string base : {"/service/v1/files/raw/", "/public/"})
            EXPECT_LT(rawStatus(requestText("PUT", base + text + "?createMode=CREATE_OR_UPDATE",
                                            user->session(), "x")),
                      500);
        EXPECT_NE(rawStatus(requestText("GET", "/service/v1/ping", "0" + text)), 200);
    });
    for (const auto& name : listed("/raw", "Files"))
        EXPECT_TRUE(
            name != "." && name != ".." && name.find('/') == name.npos &&
            std::none_of(name.begin(), name.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; }))
            << name;
    EXPECT_EQ(listed("/raw", "Folders"), Names{});
    EXPECT_EQ(listed("/", "Files"), Names{});
    EXPECT_EQ(listed("/", "Folders"), Names{"raw"});
}

TEST_F(Hostile, SubjectsOfGrantsAreKeptByteForByteOrRefused)
{
    require(user->put({"", "/f"}, "content"));
    Names granted, found;
    forEachText([&](const std::string& text, bool isName) {
        EXPECT_EQ(user->grant({"", "/f"}, text, false).status, 400);
        // "USER:/path" names an item of another user, so that no user may have a colon.
        const bool canBeUser = isName && text.find(':') == text.npos;
        EXPECT_EQ(user->grant({"", "/f"}, text, true).status, canBeUser ? 200 : 400);
        if (canBeUser) granted.insert(text);
    });
    const auto grants = parseXml(user->grants().body);
    for (const auto* name : grants.all("SubjectName"))
        found.insert(name->text);
    EXPECT_EQ(found, granted);
}

TEST_F(Hostile, IdsAndBucketsThatNobodyGaveOutAreUnknown)
{
    const Place file{"", "/f"};
    require(user->put(file, "content"));
    const auto link = linkTo("/f");
    forEachText([&](const std::string& text, bool isName) {
        const auto encoded = percentEncoded(text);
        EXPECT_EQ(user->revoke(text).status, 400);
        EXPECT_EQ(user->closeHandle(text, true).status, 400);
        EXPECT_EQ(user->send("GET", "/public/" + encoded).status, 404);
        EXPECT_EQ(user->send("GET", link + "/" + encoded).status, 404);
        const auto foreign = user->read({text, "/none"}).status;
        EXPECT_TRUE(foreign == 404 || (!isName && foreign == 400)) << foreign;
        const auto client = user->send("GET", "/service/v1/ping?clientString=" + encoded).status;
        EXPECT_TRUE(client == 200 || (!isName && client == 400)) << client;
        if (text.empty()) return; // then the parameters choose the current version
        EXPECT_EQ(user->readVersion(file, text, "1").status, 400);
        EXPECT_EQ(user->restore(file, text, "1", true).status, 400);
        EXPECT_EQ(user->readVersion(file, "", text).status, 400);
        EXPECT_EQ(user->send("PUT", "/service/v1/filehandle?path=" + encoded).status, 400);
    });
    EXPECT_EQ(user->read(file).body, "content");
}

/// The page of a folder holds the names as text: no element or attribute of it may come from a name.
TEST_F(Hostile, PublicPagesShowNamesAsText)
{
    require(user->createFolder({"", "/page"}));
    for (const auto& name : names)
        require(user->put({"", "/page/" + name}, ""));
    static const std::regex tag("<([^>]*)>");
    static const std::regex harmless(
        R"re(/?(html|head|title|style|body|main|h1|bdi|nav|table|thead|tbody|tr|th|td|a|data|time|span)|!DOCTYPE html|html lang="en"|meta [a-z =",-]*8?"?|th scope="col"( aria-sort="ascending")?|a href="\?[a-z=-]*"|data value="0"|time datetime="[0-9TZ:-]*"|a href="\./([A-Za-z0-9%._~/-]*)")re");
    const auto link = linkTo("/page");
    for (const auto& base : {link, link + "/"}) {
        const auto page = require(user->send("GET", base));
        EXPECT_EQ(page.headers.at("content-security-policy").find("script"), std::string::npos);
        EXPECT_EQ(page.headers.at("content-type"), "text/html; charset=utf-8");
        EXPECT_EQ(page.headers.at("referrer-policy"), "no-referrer");
        EXPECT_EQ(page.body.find("\u202E"), std::string::npos);
        std::size_t links = 0;
        for (std::sregex_iterator each(page.body.begin(), page.body.end(), tag), none; each != none; ++each) {
            std::smatch parts;
            const auto text = (*each)[1].str();
            EXPECT_TRUE(std::regex_match(text, parts, harmless)) << text;
            if (!parts[3].matched) continue;
            ++links;
            const auto file =
                require(user->send("GET", base.substr(0, base.rfind('/') + 1) + parts[3].str()));
            EXPECT_EQ(file.headers.at("content-disposition"),
                      "attachment; filename*=UTF-8''" +
                          text.substr(0, text.size() - 1).substr(text.rfind('/') + 1));
        }
        EXPECT_EQ(links, names.size());
    }
}

TEST_F(Hostile, DeepPathsWorkAndHugeOnesAreRefused)
{
    std::string path;
    for (int i = 0; i < 300; ++i)
        require(user->createFolder({"", path += "/d"}));
    require(user->put({"", path + "/f"}, "deep"));
    EXPECT_EQ(user->read({"", path + "/f"}).body, "deep");
    EXPECT_EQ(user->read({"", path.substr(0, 100) + "/x" + path + "/f"}).status, 404);
    EXPECT_EQ(listed(path, "Files"), Names{"f"});
    require(user->grant({"", path + "/f"}, "nobody", true));
    EXPECT_EQ(parseXml(require(user->grants()).body).only("Path"), path + "/f");
    EXPECT_EQ(user->move({"", "/d"}, {"", path + "/e"}, false).status, 409);
    require(user->deleteFolder({"", "/d"}, true));
    EXPECT_EQ(listed("/", "Folders"), Names{});

    for (const std::size_t size : {20'000u, 1'000'000u}) {
        std::string deep;
        while (deep.size() < size)
            deep += "/d";
        for (const auto& target : {deep, "/" + std::string(size, 'x')}) {
            const int status = rawStatus(requestText("PUT", "/service/v1/folders" + target, user->session()));
            EXPECT_TRUE(status >= 400 && status < 500) << status;
        }
    }
}

} // namespace
} // namespace tarnd::test
