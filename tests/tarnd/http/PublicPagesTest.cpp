// Public links open to anybody in a browser: nothing stored may run there, and a link shows its item and no more.
#include "tests/tarnd/http/ServiceTest.h"

#include <filesystem>
#include <fstream>
#include <map>

namespace tarnd::test {
namespace {

class PublicPages : public ServiceTest {
protected:
    WireReply open(const std::string& target) { return send(requestText("GET", target)); }
};

TEST_F(PublicPages, FilesAreDownloadedNeverShown)
{
    put("/%3Cb%3E%C3%A9%22.html", "<script>alert(1)</script>");
    const auto link = linkTo("/%3Cb%3E%C3%A9%22.html");
    EXPECT_EQ(linkTo("/%3Cb%3E%C3%A9%22.html"), link);

    const auto file = open(link);
    EXPECT_EQ(file.status, 200);
    EXPECT_EQ(file.body, "<script>alert(1)</script>");
    EXPECT_EQ(file.headers.at("content-type"), "application/octet-stream");
    EXPECT_EQ(file.headers.at("content-disposition"), "attachment; filename*=UTF-8''%3Cb%3E%C3%A9%22.html");
    EXPECT_EQ(file.headers.at("x-content-type-options"), "nosniff");
    EXPECT_EQ(file.headers.at("content-security-policy"), "sandbox; default-src 'none'");

    Wire wire(service.port());
    wire.send(requestText("HEAD", link) + requestText("GET", link));
    const auto head = wire.receive(true).value();
    EXPECT_EQ(head.headers.at("content-length"), "25");
    EXPECT_EQ(wire.receive().value().body, file.body);
}

/// What only browsers get has no script, no secret and no way for a content to be more than shown.
TEST_F(PublicPages, ShowPeopleWhatProgramsGetAsItIs)
{
    require(asAlice("PUT", "/service/v1/folders/d"));
    require(asAlice("PUT", "/service/v1/folders/d/s"));
    const std::pair<std::string, std::string> contents[] = {{"text", "a\n<script>&"},
                                                            {"picture", "\x89PNG\r\n\x1a\n<script>"},
                                                            {"paper", "%PDF-1.4 <script>"},
                                                            {"other", std::string(2000, '\x01')}};
    for (const auto& [name, content] : contents)
        put("/d/" + name, content);
    put("/d/s/%5Cx", "deep");
    const auto link = linkTo("/d"), html = std::string("text/html; charset=utf-8");

    struct Row {
        std::string target;
        bool asBrowser;
        std::string type, inBody;
    };

    const std::string bytes = "application/octet-stream";
    const Row rows[] = {
        {link + "/text", true, html, "<pre tabindex=\"0\">\na\n&lt;script&gt;&amp;</pre>"},
        {link + "/text", false, bytes, contents[0].second},
        {link + "/text?download", true, bytes, contents[0].second},
        {link + "/text?view", true, bytes, contents[0].second},
        {link + "/picture", true, html, "<img src=\"?view\" alt=\"Preview of picture\">"},
        {link + "/picture?view", true, "image/png", contents[1].second},
        {link + "/paper", true, html, "<object data=\"?view\""},
        {link + "/paper?view", true, "application/pdf", contents[2].second},
        {link + "/other", true, html, "</nav><p><data value=\"2000\">2.0 KiB</data>"},
        {link + "/s/", true, html, "<a href=\"../\">Up</a> <a href=\"?download\">Download all</a>"},
        {link + "/s", false, html, "<a href=\"./s/%5Cx\"><bdi>\\x</bdi></a>"},
        {link, false, html, "<a href=\"?sort=-name\">Name"},
        {link + "?sort=-size", true, html, "aria-sort=\"descending\"><a href=\"?sort=size\">Size"},
        {"/", true, html, "app.js"},
        {"/app.js", true, "text/javascript; charset=utf-8", "use strict"},
        {"/app.css", true, "text/css; charset=utf-8", "--accent"},
        {"/favicon.ico", true, "image/svg+xml", "<svg"},
    };
    for (const auto& [target, asBrowser, type, inBody] : rows) {
        SCOPED_TRACE(target);
        const auto headers = asBrowser ? "Accept: text/html,*/*;q=0.8\r\n" : "Accept: */*\r\n";
        const auto reply = send(requestText("GET", target, alice, {}, headers));
        EXPECT_EQ(reply.status, 200);
        EXPECT_EQ(reply.headers.at("content-type"), type);
        EXPECT_EQ(reply.headers.at("x-content-type-options"), "nosniff");
        EXPECT_EQ(reply.headers.at("referrer-policy"), "no-referrer");
        EXPECT_THAT(reply.body, ::testing::HasSubstr(inBody));
        EXPECT_EQ(reply.body.find(alice), std::string::npos);
        const auto& policy = reply.headers.at("content-security-policy");
        EXPECT_THAT(policy, ::testing::HasSubstr("default-src 'none'"));
        EXPECT_EQ(policy.find("script-src 'self'") != std::string::npos,
                  target.starts_with("/public") == false);
        EXPECT_EQ(policy.find("script-src 'unsafe"), std::string::npos);
    }
    const auto sorted = open(link + "?sort=-size").body;
    EXPECT_LT(sorted.find("/other\""), sorted.find("/text\""));
    service.terminate();
    service.addArguments({"--no-web"});
    service.start();
    EXPECT_EQ(outcomeOf(open("/")), "400 The service has nothing at this address.");
}

/// A reader of archives finds every file and folder with its bytes, and nothing that leads out of its folder; one
/// that could not be completed does not look whole.
TEST_F(PublicPages, AFolderComesAsOneArchive)
{
    const auto big = std::string(3'000'000, 'b');
    for (const std::string folder : {"/d", "/d/empty", "/d/s"})
        require(asAlice("PUT", "/service/v1/folders" + folder));
    put("/d/s/big", big);
    put("/d/none", "");
    put("/d/..%5C..%5Cx%C3%A9", "safe");
    const auto link = linkTo("/d");
    const auto fetch = [&](const std::string& request) {
        Wire wire(service.port());
        wire.send(request);
        const auto head = wire.receive(true).value_or(WireReply{});
        EXPECT_EQ(head.headers.at("content-disposition"), "attachment; filename*=UTF-8''d.zip");
        return wire.rest(); // an old HTTP has no chunks
    };
    const std::string form = "session=" + alice;
    const auto folder = service.dataDir().parent_path() / "unpacked";
    for (const auto& request : {"GET " + link + "?download HTTP/1.0\r\n\r\n",
                                "POST /service/v1/download/d HTTP/1.0\r\nContent-Length: " +
                                    std::to_string(form.size()) + "\r\n\r\n" + form}) {
        std::filesystem::create_directory(folder);
        const auto archive = fetch(request);
        // The last time that the name stands there it is in the table, 30 bytes behind the CRC-32.
        EXPECT_EQ(archive.substr(archive.rfind("d/s/big") - 30, 4), "\xdc\x99\xd7\x75");
        std::ofstream(folder / "d.zip", std::ios::binary) << archive;
        const auto unpacked =
            runCommand({"cmake", "-E", "chdir", folder, "cmake", "-E", "tar", "xf", "d.zip"});
        EXPECT_EQ(unpacked.exitCode, 0) << unpacked.err;
        std::map<std::string, std::string> found;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(folder / "d")) {
            std::ifstream in(entry.path(), std::ios::binary);
            found[entry.path().lexically_relative(folder)] =
                entry.is_directory() ? "/" : std::string{std::istreambuf_iterator<char>(in), {}};
        }
        const std::map<std::string, std::string> expected = {{"d/empty", "/"},
                                                             {"d/s", "/"},
                                                             {"d/s/big", big},
                                                             {"d/none", ""},
                                                             {"d/..\uFF3C..\uFF3Cx\u00E9", "safe"}};
        EXPECT_EQ(found, expected);
        std::filesystem::remove_all(folder);
    }
    if (service.usesObjects()) return;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(service.dataDir() / "contents"))
        if (entry.is_regular_file() && entry.file_size() == big.size())
            std::filesystem::resize_file(entry.path(), 10);
    Wire wire(service.port());
    wire.send(requestText("GET", link + "?download"));
    wire.receive(true);
    EXPECT_FALSE(wire.rest().ends_with("\r\n0\r\n\r\n"));
}

TEST_F(PublicPages, ShowNothingBesideTheLinkedItem)
{
    ASSERT_EQ(asAlice("PUT", "/service/v1/folders/d").status, 200);
    put("/d/f", "shared");
    put("/secret", "secret");
    const auto link = linkTo("/d");
    EXPECT_EQ(open(link + "/f").body, "shared");
    for (const std::string& target :
         {link + "/..", link + "/../secret", link + "/%2e%2e/secret", link + "/..%2Fsecret", link + "/none",
          link + "0", link.substr(0, link.size() - 1), link + "/f/", link + "//f",
          std::string("/public/none"), std::string("/public"), std::string("/public/")}) {
        const auto reply = open(target);
        EXPECT_EQ(reply.status, 404) << target;
        EXPECT_EQ(reply.headers.at("content-type"), "text/html; charset=utf-8") << target;
        EXPECT_EQ(reply.body.find("secret"), std::string::npos) << target;
    }
    ASSERT_EQ(asAlice("DELETE", "/service/v1/folders/d?forceRecursive=true").status, 200);
    EXPECT_EQ(open(link).status, 404);
}

} // namespace
} // namespace tarnd::test
