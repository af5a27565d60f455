// Texts made to be mistaken, wherever a client may put one. Each is kept byte for byte or refused; none may
// reach the file system, the database's language, another line of the protocol or a browser's parser.
#include "tests/tarnd/access/HostileTexts.h"
#include "tests/tarnd/access/SharedWorld.h"
#include "tests/tarnd/http/Wire.h"

#include <algorithm>
#include <filesystem>
#include <gtest/gtest.h>
#include <regex>
#include <set>

namespace tarnd::test {
namespace {

using Names = std::set<std::string>;

class Hostile : public ::testing::Test {
protected:
    Hostile()
    {
        const auto token = service.addUser("alice");
        service.start();
        user = std::make_unique<ServiceUser>(service.url());
        require(user->login(token));
        outside = outsideOfData();
    }

    /// Whatever the test sent: the service lives, and nothing lies where it does not belong.
    void TearDown() override
    {
        EXPECT_EQ(user->ping().status, 200) << service.errors();
        EXPECT_EQ(service.errors(), "");
        EXPECT_EQ(outsideOfData(), outside);
        EXPECT_TRUE(isDisjoint(namesInData()));
        ASSERT_EQ(service.terminate(), 0);
        const auto checked = service.run({"fsck"});
        EXPECT_EQ(checked.exitCode, 0) << checked.out << checked.err;
    }

    Names outsideOfData() const
    {
        Names found;
        for (const auto& entry : std::filesystem::directory_iterator(service.dataDir().parent_path()))
            found.insert(entry.path().filename());
        if (std::filesystem::exists("/tmp/tarn-escaped")) found.insert("/tmp/tarn-escaped");
        return found;
    }

    Names namesInData() const
    {
        Names found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(service.dataDir()))
            found.insert(entry.path().filename());
        return found;
    }

    /// The names of the folder's entries: `list` is "Files" or "Folders".
    Names listed(const std::string& folder, const std::string& list)
    {
        Names names;
        const auto document = parseXml(require(user->list({"", folder})).body);
        for (const auto& entry : document.child(list).children)
            names.insert(entry.only("Name"));
        return names;
    }

    static Names allNames()
    {
        Names names;
        for (const auto& text : hostileTexts())
            if (text.isName) names.insert(text.text);
        return names;
    }

    static bool isDisjoint(const Names& stored)
    {
        return std::none_of(hostileTexts().begin(), hostileTexts().end(),
                            [&](const HostileText& text) { return stored.count(text.text) != 0; });
    }

    /// Stores a file under each text that may be a name.
    void storeAll(const std::string& folder)
    {
        require(user->createFolder({"", folder}));
        for (const auto& text : hostileTexts()) {
            if (!text.isName) continue;
            const auto target = "/service/v1/files" + folder + "/" + percentEncoded(text.text);
            require(user->send("PUT", target + "?createMode=CREATE", text.label));
        }
    }

    /// The status of the reply to these bytes; 0 when the service just closes the connection.
    int rawStatus(const std::string& request)
    {
        Wire wire(service.port());
        wire.send(request);
        wire.endOfRequest();
        const auto reply = wire.receive();
        return reply ? reply->status : 0;
    }

    static bool isRefusal(int status) { return status == 0 || (status >= 400 && status < 500); }

    TarndProcess service;
    std::unique_ptr<ServiceUser> user;
    Names outside;
};

TEST_F(Hostile, NamesAreKeptByteForByteOrRefused)
{
    require(user->createFolder({"", "/files"}));
    require(user->createFolder({"", "/folders"}));
    for (const auto& text : hostileTexts()) {
        SCOPED_TRACE(text.label);
        const auto name = percentEncoded(text.text);
        const int expected = text.isName ? 200 : 400;
        EXPECT_EQ(
            user->send("PUT", "/service/v1/files/files/" + name + "?createMode=CREATE", text.label).status,
            expected);
        EXPECT_EQ(user->send("PUT", "/service/v1/folders/folders/" + name).status, expected);
        if (!text.isName) continue;
        EXPECT_EQ(user->read({"", "/files/" + text.text}).body, text.label);
        const auto attributes = parseXml(require(user->attributes({"", "/folders/" + text.text})).body);
        EXPECT_EQ(attributes.only("Name"), text.text);
        EXPECT_EQ(parseXml(require(user->versions({"", "/files/" + text.text})).body).only("Name"),
                  text.text);
    }
    EXPECT_EQ(listed("/files", "Files"), allNames());
    EXPECT_EQ(listed("/folders", "Folders"), allNames());
}

TEST_F(Hostile, RequestLinesAreUnderstoodLiterallyOrRefused)
{
    require(user->createFolder({"", "/raw"}));
    for (const auto& text : hostileTexts()) {
        SCOPED_TRACE(text.label);
        for (const std::string base : {"/service/v1/files/raw/", "/public/"})
            EXPECT_LT(rawStatus(requestText("PUT", base + text.text + "?createMode=CREATE_OR_UPDATE",
                                            user->session(), "x")),
                      500);
    }
    const auto isPlain = [](const std::string& name) {
        return name != "." && name != ".." && name.find('/') == std::string::npos &&
               std::none_of(name.begin(), name.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; });
    };
    for (const auto& name : listed("/raw", "Files"))
        EXPECT_TRUE(isPlain(name)) << name;
    EXPECT_EQ(listed("/raw", "Folders"), Names{});
    EXPECT_EQ(listed("/", "Files"), Names{});
    EXPECT_EQ(listed("/", "Folders"), Names{"raw"});
}

TEST_F(Hostile, MoveTargetsAreKeptByteForByteOrRefused)
{
    require(user->createFolder({"", "/moved"}));
    for (const auto& text : hostileTexts()) {
        SCOPED_TRACE(text.label);
        require(user->put({"", "/source"}, text.label, "CREATE_OR_UPDATE"));
        const auto status = user->move({"", "/source"}, {"", "/moved/" + text.text}, false).status;
        if (text.isName)
            EXPECT_EQ(status, 200);
        else // the name of a folder that is not there stands before a slash
            EXPECT_TRUE(status == 400 || (status == 409 && text.text.find('/') != std::string::npos))
                << status;
    }
    EXPECT_EQ(listed("/moved", "Files"), allNames());
}

TEST_F(Hostile, SubjectsOfGrantsAreKeptByteForByteOrRefused)
{
    require(user->put({"", "/f"}, "content"));
    Names granted;
    for (const auto& text : hostileTexts()) {
        SCOPED_TRACE(text.label);
        EXPECT_EQ(user->grant({"", "/f"}, text.text, false).status, 400);
        const auto status = user->grant({"", "/f"}, text.text, true).status;
        // "USER:/path" names an item of another user, so that no user may have a colon.
        const bool canBeUser = text.isName && text.text.find(':') == std::string::npos;
        EXPECT_EQ(status, canBeUser ? 200 : 400);
        if (canBeUser) granted.insert(text.text);
    }
    Names listedNames;
    const auto grants = parseXml(require(user->grants()).body);
    for (const auto* name : grants.all("SubjectName"))
        listedNames.insert(name->text);
    EXPECT_EQ(listedNames, granted);
}

TEST_F(Hostile, IdsAndBucketsThatNobodyGaveOutAreUnknown)
{
    const Place file{"", "/f"};
    require(user->put(file, "content"));
    const std::string root = "/service/v1/";
    const auto link = parseXml(require(user->link(file)).body).only("PublicAccessUrl");
    for (const auto& text : hostileTexts()) {
        SCOPED_TRACE(text.label);
        EXPECT_EQ(user->revoke(text.text).status, 400);
        EXPECT_EQ(user->closeHandle(text.text, true).status, 400);
        EXPECT_EQ(user->send("GET", "/public/" + percentEncoded(text.text)).status, 404);
        EXPECT_EQ(
            user->send("GET", link.substr(service.url().size()) + "/" + percentEncoded(text.text)).status,
            404);
        const auto foreign = user->read({text.text, "/none"}).status;
        EXPECT_TRUE(foreign == 404 || (!text.isName && foreign == 400)) << foreign;
        const auto client = user->send("GET", root + "ping?clientString=" + percentEncoded(text.text)).status;
        EXPECT_TRUE(client == 200 || (!text.isName && client == 400)) << client;
        EXPECT_TRUE(isRefusal(rawStatus(requestText("GET", root + "ping", "0" + text.text))));
        if (text.text.empty()) continue; // then the parameters choose the current version
        EXPECT_EQ(user->readVersion(file, text.text, "1").status, 400);
        EXPECT_EQ(user->restore(file, text.text, "1", true).status, 400);
        EXPECT_EQ(user->readVersion(file, "", text.text).status, 400);
        EXPECT_EQ(user->send("PUT", root + "filehandle?path=" + percentEncoded(text.text)).status, 400);
    }
    EXPECT_EQ(user->read(file).body, "content");
}

/// The page of a folder holds the names as text: no element or attribute of it may come from a name.
TEST_F(Hostile, PublicPagesShowNamesAsText)
{
    storeAll("/page");
    const auto url = parseXml(require(user->link({"", "/page"})).body).only("PublicAccessUrl");
    static const std::regex tag("<([^>]*)>");
    static const std::regex harmless(
        R"re(/?(html|head|title|body|h1|bdi|ul|li|p|a)|!DOCTYPE html|html lang="en"|meta charset="utf-8"|a href="\./[A-Za-z0-9%._~/-]*")re");
    static const std::regex href("href=\"\\./([^\"]*)\"");
    const std::sregex_iterator none;
    for (const std::string slash : {"", "/"}) {
        const auto base = url.substr(service.url().size()) + slash;
        const auto page = require(user->send("GET", base));
        EXPECT_EQ(page.headers.at("content-security-policy"),
                  "default-src 'none'; base-uri 'none'; form-action 'none'; frame-ancestors 'none'");
        EXPECT_EQ(page.headers.at("content-type"), "text/html; charset=utf-8");
        EXPECT_EQ(page.headers.at("referrer-policy"), "no-referrer");
        for (std::sregex_iterator each(page.body.begin(), page.body.end(), tag); each != none; ++each)
            EXPECT_TRUE(std::regex_match((*each)[1].str(), harmless)) << each->str();
        std::size_t links = 0;
        for (std::sregex_iterator each(page.body.begin(), page.body.end(), href); each != none;
             ++each, ++links) {
            const auto link = (*each)[1].str();
            const auto file = require(user->send("GET", base.substr(0, base.rfind('/') + 1) + link));
            EXPECT_EQ(file.headers.at("content-disposition"),
                      "attachment; filename*=UTF-8''" + link.substr(link.rfind('/') + 1));
        }
        EXPECT_EQ(links, allNames().size());
    }
}

TEST_F(Hostile, DeepPathsWorkAndHugeOnesAreRefused)
{
    constexpr int depth = 300;
    std::string path;
    for (int i = 0; i < depth; ++i)
        require(user->createFolder({"", path += "/d"}));
    require(user->put({"", path + "/f"}, "deep"));
    EXPECT_EQ(user->read({"", path + "/f"}).body, "deep");
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
            EXPECT_TRUE(
                isRefusal(rawStatus(requestText("PUT", "/service/v1/folders" + target, user->session()))));
        }
    }
}

} // namespace
} // namespace tarnd::test
