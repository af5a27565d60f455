// Parts of contents, what is told about them, and uploads of unknown length.
#include "tests/tarnd/http/ServiceTest.h"

#include <regex>

namespace tarnd::test {
namespace {

class Contents : public ServiceTest {
protected:
    Contents() : ServiceTest({"--max-file-size", "1000000"}) {}

    static constexpr auto file = "/service/v1/files/f";

    WireReply ask(const std::string& method, const std::string& headers, const std::string& target = file)
    {
        return send(requestText(method, target, alice, {}, headers), method == "HEAD");
    }

    std::string link()
    {
        const auto url = parseXml(asAlice("GET", "/service/v1/public/urls/f").body).only("PublicAccessUrl");
        return url.substr(service.url().size());
    }

    WireReply putChunks(const std::string& chunks, const std::string& headers = "")
    {
        return send("PUT /service/v1/files/f?createMode=CREATE_OR_UPDATE HTTP/1.1\r\nHost: tarn\r\n"
                    "x-qz-tarn-session-id: " +
                    alice + "\r\nTransfer-Encoding: chunked\r\n" + headers + "\r\n" + chunks);
    }
};

const std::string digestOfTenDigits = "sha-256=:hNiYd/DUBB77a/kaFvAkjy/Vc+avBcGflr7bn4gveII=:";

TEST_F(Contents, AreStoredOnlyWithTheDigestAnnounced)
{
    put("/f", "old");
    const auto target = std::string(file) + "?createMode=UPDATE";
    const auto digest = "Content-Digest: sha-512=:x:, x-sha-256=:y:,\t" + digestOfTenDigits + "\r\n";
    const auto refused = send(requestText("PUT", target, alice, "0123456780", digest));
    EXPECT_EQ(refused.status, 400);
    const auto wrong = "sha-256=:" + std::string(43, 'A') + "=:";
    const auto trailing = [&](const std::string& digests, const std::string& headers = "") {
        return putChunks("a\r\n0123456789\r\n0\r\nContent-Digest: " + digests + "\r\n\r\n", headers);
    };
    EXPECT_EQ(trailing(digestOfTenDigits, "Content-Digest: " + wrong + "\r\n").status, 400);
    for (const std::string& refusing :
         {std::string("sha-256=::"), std::string("sha-256=hNiYd"), std::string("sha-256=:hNiYd"),
          std::string("sha-256"), std::string("garbage!!"), digestOfTenDigits + ",", wrong,
          digestOfTenDigits + ", " + wrong}) {
        EXPECT_EQ(
            send(requestText("PUT", target, alice, "0123456789", "Content-Digest: " + refusing + "\r\n"))
                .status,
            400)
            << refusing;
        EXPECT_EQ(trailing(refusing).status, 400) << refusing;
    }
    EXPECT_EQ(ask("GET", "").body, "old");
    const auto bare = digestOfTenDigits.substr(0, digestOfTenDigits.size() - 2) + ":"; // no '=' behind it
    for (const auto& fitting : {bare, wrong + ", " + digestOfTenDigits + ";a=1",
                                "x=\"1, " + wrong + "\", " + bare, std::string("sha-512=:x:")})
        EXPECT_EQ(trailing(fitting).status, 200) << fitting;
    put("/f", "old");
    EXPECT_EQ(send(requestText("PUT", target, alice, "0123456789", digest)).status, 200);
    EXPECT_EQ(ask("GET", "").body, "0123456789");
}

TEST_F(Contents, ComeInTheRangeAskedFor)
{
    put("/f", "0123456789");
    put("/empty", "");
    const auto tag = ask("HEAD", "").headers.at("etag");

    struct Row {
        std::string headers, body, range; ///< range: empty for the whole with 200, "*" for 416
    };

    const Row rows[] = {
        {"bytes=0-0", "0", "0-0"},
        {"Bytes=0-0 \t", "0", "0-0"},
        {"bytes=3-5", "345", "3-5"},
        {"bytes=7-", "789", "7-9"},
        {"bytes=-2", "89", "8-9"},
        {"bytes=-20", "0123456789", "0-9"},
        {"bytes=8-99999999999999999999999", "89", "8-9"},
        {"bytes=10-", "", "*"},
        {"bytes=99999999999999999999999-", "", "*"},
        {"bytes=-0", "", "*"},
        {"bytes=0-1,4-5", "0123456789", ""},
        {"bytes=5-3", "0123456789", ""},
        {"bytes=-", "0123456789", ""},
        {"bytes=1", "0123456789", ""},
        {"bytes= 1-2", "0123456789", ""},
        {"bytes=+1-2", "0123456789", ""},
        {"lines=1-2", "0123456789", ""},
        {"bytes=1-2\r\nRange: bytes=3-4", "0123456789", ""},
        {"bytes=1-2\r\nIf-Range: " + tag, "12", "1-2"},
        {"bytes=10-\r\nIf-Range: " + tag, "", "*"},
        {"bytes=1-2\r\nIf-Range: W/" + tag, "0123456789", ""},
        {"bytes=1-2\r\nIf-Range: \"other\"", "0123456789", ""},
        {"bytes=1-2\r\nIf-Range: Wed, 21 Oct 2054 07:28:00 GMT", "0123456789", ""},
    };
    for (const auto& target : {std::string(file), link()})
        for (const auto& [headers, body, range] : rows) {
            const auto reply = ask("GET", "Range: " + headers + "\r\n", target);
            const auto told = reply.headers.find("content-range");
            EXPECT_EQ(reply.status, range.empty() ? 200 : range == "*" ? 416 : 206) << headers;
            EXPECT_EQ(told == reply.headers.end() ? "" : told->second,
                      range.empty() ? "" : "bytes " + range + "/10")
                << headers;
            EXPECT_EQ(range == "*" ? outcomeOf(reply) : reply.body,
                      range == "*" ? "416 The file has no bytes in the range asked for." : body)
                << headers;
        }
    EXPECT_EQ(ask("GET", "Range: bytes=0-\r\n", "/service/v1/files/empty").status, 416);
    EXPECT_EQ(ask("GET", "Range: bytes=-1\r\n", "/service/v1/files/empty").status, 200);
}

TEST_F(Contents, AreDescribedByTheirHeaders)
{
    put("/f", "0123456789");
    auto whole = ask("GET", "").headers;
    EXPECT_EQ(whole.at("accept-ranges"), "bytes");
    EXPECT_EQ(whole.at("content-type"), "application/octet-stream");
    EXPECT_EQ(whole.at("content-digest"), digestOfTenDigits);
    EXPECT_EQ(whole.at("repr-digest"), digestOfTenDigits);
    EXPECT_TRUE(std::regex_match(whole.at("last-modified"), std::regex("..., .. ... .... ..:..:.. GMT")));
    EXPECT_EQ(ask("HEAD", "Range: bytes=1-2\r\n").headers, whole);
    const auto part = ask("GET", "Range: bytes=1-2\r\n").headers;
    EXPECT_EQ(part.count("content-digest"), 0U) << "it would be that of the part";
    EXPECT_EQ(part.at("repr-digest"), digestOfTenDigits);
    const auto behind = ask("GET", "Range: bytes=10-\r\n").headers;
    EXPECT_EQ(behind.at("repr-digest") + behind.at("etag"), digestOfTenDigits + whole.at("etag"));
    EXPECT_EQ(ask("HEAD", "", "/service/v1/files/none").status, 404);

    const auto versions = asAlice("GET", "/service/v1/versions/files/f").body;
    EXPECT_EQ(whole.at("etag"), '"' + parseXml(versions).only("VersionId") + '"');
    put("/f", "other, under the same version");
    EXPECT_NE(ask("HEAD", "").headers.at("etag"), whole.at("etag"));
}

TEST_F(Contents, AreChangedOnlyAsTheirTagsAllow)
{
    const auto change = [&](const std::string& method, const std::string& path, const std::string& headers) {
        return send(requestText(method, "/service/v1/" + path, alice, method == "PUT" ? "1" : "", headers));
    };
    const auto written = change("PUT", "files/f?createMode=CREATE_OR_UPDATE", "If-None-Match: *\r\n");
    EXPECT_EQ(written.status, 200);
    const auto first = written.headers.at("etag");
    EXPECT_EQ(ask("HEAD", "").headers.at("etag"), first);
    const auto second =
        change("PUT", "files/f?createMode=UPDATE", "If-Match: \"x\", " + first + "\r\n").headers.at("etag");
    EXPECT_NE(second, first);
    EXPECT_EQ(ask("HEAD", "").headers.at("etag"), second);
    for (const auto* path : {"files/f?createMode=UPDATE", "files/f?createMode=UPDATE&createNewVersion=true",
                             "versions/files/f?versionLabel=1&createNewVersion=true"})
        for (const auto& [condition, status] :
             std::vector<std::pair<std::string, int>>{{"If-Match: " + first, 412},
                                                      {"If-Match: W/" + second, 412},
                                                      {"If-Match: \"*\"", 412},
                                                      {"If-None-Match: *", 412},
                                                      {"If-None-Match: \"x\", " + second, 412},
                                                      {"If-None-Match: W/" + second, 412},
                                                      {"If-Match: x", 400},
                                                      {"If-Match:", 400},
                                                      {"If-Match: \"x\" " + second, 400},
                                                      {"If-None-Match: \"x", 400}})
            EXPECT_EQ(change("PUT", path, condition + "\r\n").status, status) << path << " " << condition;
    EXPECT_EQ(change("PUT", "files/g?createMode=CREATE", "If-Match: *\r\n").status, 412);
    EXPECT_EQ(change("DELETE", "files/f", "If-Match: " + first + "\r\n").status, 412);
    EXPECT_EQ(ask("HEAD", "").headers.at("etag"), second);
    EXPECT_EQ(change("DELETE", "files/f", "If-Match: " + second + "\r\n").status, 200);
}

TEST_F(Contents, MayComeInWithoutALength)
{
    const auto stored = putChunks("3\r\n012\r\n7;x=y\r\n3456789\r\n0\r\n\r\n");
    EXPECT_EQ(stored.status, 200);
    EXPECT_EQ(stored.headers.at("content-digest"), digestOfTenDigits);
    const auto large = "f000\r\n" + std::string(0xf000, 'x') + "\r\n";
    std::string tooLarge;
    for (int i = 0; i < 80; ++i)
        tooLarge += large;
    // Nobody waits for the rest of it, and yet the client, still sending, is told.
    EXPECT_EQ(outcomeOf(putChunks(tooLarge)), "413 The file is larger than this service accepts.");
    {
        Wire cut(service.port());
        cut.send(
            "PUT /service/v1/files/f?createMode=UPDATE HTTP/1.1\r\nHost: tarn\r\nx-qz-tarn-session-id: " +
            alice + "\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n");
        cut.endOfRequest();
        cut.rest();
    }
    EXPECT_EQ(ask("GET", "").body, "0123456789");
    EXPECT_EQ(asAlice("PUT", "/service/v1/files/f?createMode=UPDATE", "0123456789").headers.at("repr-digest"),
              digestOfTenDigits);
}

} // namespace
} // namespace tarnd::test
