// Public links open to anybody in a browser: nothing stored may run there, and a link shows its item and no more.
#include "tests/tarnd/http/ServiceTest.h"

namespace tarnd::test {
namespace {

class PublicPages : public ServiceTest {
protected:
    /// The path of a new public link: "/public/TOKEN".
    std::string linkTo(const std::string& path)
    {
        const auto url =
            parseXml(asAlice("GET", "/service/v1/public/urls" + path).body).only("PublicAccessUrl");
        EXPECT_EQ(url.substr(0, service.url().size() + 8), service.url() + "/public/");
        return url.substr(service.url().size());
    }

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
