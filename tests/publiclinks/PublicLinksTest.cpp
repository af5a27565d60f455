// Links made, listed and revoked byte for byte, and what is said where a service does not know them.
#include "support/WireTest.h"
#include "tarn/protocol/TarnError.h"
#include "tarn/publiclinks/PublicLinksClient.h"
#include "tarn/publiclinks/PublicLinksClientServiceProvider.h"

namespace connector::tarn {

std::string show(const PublicLinkCreateResponse& made)
{
    return tarntest::fields(made.linkId, made.url, made.expires);
}

std::string show(const PublicLinkListResponse& list)
{
    std::string text;
    for (const auto& each : list.links)
        text +=
            tarntest::fields(each.linkId, each.url, each.expires, each.type, each.path, each.bucket) + "\n";
    return text;
}

namespace {

using namespace tarntest;
using Bench = WireBench<PublicLinksClient, PublicLinksClientServiceProvider>;
using Case = WireCase<PublicLinksClient>;

const std::string url = "http://host/service/v1/public/links";
const std::string identity = "?locale=en_US&clientString=app%201.0&clientType=test";
const std::string session = "\nx-qz-tarn-session-id: S1\n";

auto create(const std::u16string& path, const std::u16string& bucket, std::uint64_t expires)
{
    return [=](PublicLinksClient& client) {
        auto request = located<PublicLinkCreate>(path, bucket);
        request->expires = expires;
        return watch(client.createLink(std::move(request)));
    };
}

Outcome list(PublicLinksClient& client)
{
    return watch(client.listLinks(std::make_unique<PublicLinkList>()));
}

Outcome revoke(PublicLinksClient& client)
{
    auto request = std::make_unique<PublicLinkRevoke>();
    request->linkId = "a b";
    return watch(client.revokeLink(std::move(request)));
}

const std::vector<Case> cases = {
    {"one that ends", create(u"/ä b", u"", 4'102'444'800'000),
     "put " + url + "/%C3%A4%20b" + identity + "&bucket=alice&expires=4102444800000" + session,
     "<R><PublicLinkId>L1</PublicLinkId><PublicAccessUrl>http://ö</PublicAccessUrl><Expires>5</Expires></R>",
     "L1|http://ö|5"},
    {"one that does not", create(u"/a", u"bob", 0), "put " + url + "/a" + identity + "&bucket=bob" + session,
     "<R/>", "||0"},
    {"list", list, "get " + url + identity + session,
     R"(<R><PublicLink><PublicLinkId>L1</PublicLinkId><PublicAccessUrl>u</PublicAccessUrl><Expires>5</Expires>
        <Type>FOLDER</Type><Resource><Path>/ä</Path><Bucket>alice</Bucket></Resource></PublicLink>
        <PublicLink/></R>)",
     "L1|u|5|FOLDER|/ä|alice\n||0|||\n"},
    {"revoke", revoke, "delete " + url + "/a%20b" + identity + session},
};

TEST(PublicLinks, SendsEachRequestAndReadsItsReply)
{
    expectExchanges<Bench>(cases);
    expectRefusals(cases);
}

TEST(PublicLinks, SendsNoIdThatWouldMakeAnotherAddress)
{
    for (const std::string id : {"a/../b", "a?b", "a#b"}) {
        Bench bench;
        auto request = std::make_unique<PublicLinkRevoke>();
        request->linkId = id;
        const auto outcome = watch(bench.client->revokeLink(std::move(request)));
        EXPECT_EQ(outcome(), "There is no public link with the id \"" + id + "\".");
        EXPECT_EQ(bench.transport->count(), 0u);
    }
}

TEST(PublicLinks, SaysWhenTheServiceDoesNotHaveThem)
{
    const std::string missing = "The service makes no links that end, and lists and revokes none.";

    const struct {
        std::uint16_t status;
        std::string reason, ofPath, ofOthers;
    } answers[] = {
        {400, "unknownRoute", missing, missing},
        {400, "wrongMethod", missing, missing},
        {501, "", missing, missing},
        {404, "", "File not found.", missing},
        {400, "unknownLink", "no", "no"},
    };

    for (const auto& [status, reason, ofPath, ofOthers] : answers)
        for (const auto& wireCase : cases) {
            Bench bench;
            const auto outcome = wireCase.call(*bench.client);
            bench.transport->answer(status, "<E><code>no</code><reason>" + reason + "</reason></E>");
            EXPECT_EQ(outcome(), wireCase.name.starts_with("one") ? ofPath : ofOthers) << status << reason;
        }
}

} // namespace
} // namespace connector::tarn
