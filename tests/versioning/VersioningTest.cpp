// Version lists and restores byte for byte, and the numbers in their replies: signed in a list, unsigned in a
// restore, echoed from the request where the reply is silent.
#include "support/WireTest.h"
#include "tarn/versioning/VersioningClient.h"
#include "tarn/versioning/VersioningClientServiceProvider.h"

#include <limits>

namespace {

using namespace connector::tarn;
using namespace tarntest;
using Bench = WireBench<VersioningClient, VersioningClientServiceProvider>;
using Case = WireCase<VersioningClient>;

const std::string url = "http://host/service/v1/versions/files";
const std::string identity = "?locale=en_US&clientString=app%201.0&clientType=test";
const std::string session = "\nx-qz-tarn-session-id: S1\n";

std::unique_ptr<VersionRestore> restore(const std::u16string& path, const std::string& id, std::int64_t label,
                                        bool createNewVersion)
{
    auto request = located<VersionRestore>(path);
    request->versionId = id;
    request->versionLabel = label;
    request->createNewVersion = createNewVersion;
    return request;
}

class VersioningOnTheWire : public testing::TestWithParam<Case> {};

TEST_P(VersioningOnTheWire, SendsOneRequestAndReportsHowItEnds)
{
    expectExchange<Bench>(GetParam());
}

TEST_P(VersioningOnTheWire, SendsNothingWithoutSessionOrConnector)
{
    expectRefusal(GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    , VersioningOnTheWire,
    testing::Values(
        Case{"RestoreInPlace",
             [](auto& c) { return watch(c.restoreVersion(restore(u"/a b.txt", "A17", -3, false))); },
             "put " + url + "/a%20b.txt" + identity +
                 "&versionId=A17&versionLabel=-3&createNewVersion=false" + session},
        Case{"RestoreAsNewestWithoutAnId",
             [](auto& c) { return watch(c.restoreVersion(restore(u"/a", "", 0, true))); },
             "put " + url + "/a" + identity + "&versionId=&versionLabel=0&createNewVersion=true" + session},
        Case{"ListWithoutTheBucket",
             [](auto& c) { return watch(c.listVersions(located<VersionList>(u"/a", u"bob"))); },
             "get " + url + "/a" + identity + session},
        Case{"PathIsJoinedAsItStands",
             [](auto& c) { return watch(c.listVersions(located<VersionList>(u"a"))); },
             "get " + url + "a" + identity + session}),
    caseName<Case>);

/// What a restore of version A17, label -3, makes of a reply: "id label", or the failure.
std::string restored(const std::string& reply)
{
    Bench bench;
    auto future = bench.client->restoreVersion(restore(u"/a", "A17", -3, false));
    bench.transport->answer(200, reply);
    try {
        auto response = future.get();
        return response->versionId + " " + std::to_string(response->versionLabel);
    } catch (const std::exception& error) {
        return error.what();
    }
}

TEST(VersioningReplies, EchoTheRequestWhereARestoreReplyIsSilent)
{
    EXPECT_EQ(restored("<R><VersionId>B</VersionId><VersionLabel>9</VersionLabel></R>"), "B 9");
    EXPECT_EQ(restored("<R/>"), "A17 -3");
    EXPECT_EQ(restored("<R><VersionId/><VersionLabel/></R>"), "A17 -3");
    EXPECT_EQ(
        restored("<R><VersionId>B</VersionId><VersionId>C</VersionId><VersionLabel>9</VersionLabel></R>"),
        "A17 9");
    EXPECT_EQ(restored("<R><VersionLabel>-2</VersionLabel></R>"), "A17 -2") << "2^64 - 2 in 64 bits";
    EXPECT_EQ(restored("<R><VersionLabel>18446744073709551615</VersionLabel></R>"), "A17 -1");
    EXPECT_EQ(restored("<R><VersionLabel>18446744073709551616</VersionLabel></R>"), "stoull");
    EXPECT_EQ(restored("<R><VersionLabel>nine</VersionLabel></R>"), "stoull");
}

std::unique_ptr<VersionListResponse> listed(const std::string& reply)
{
    Bench bench;
    auto future = bench.client->listVersions(located<VersionList>(u"/a"));
    bench.transport->answer(200, reply);
    return future.get();
}

TEST(VersioningReplies, ReadAList)
{
    auto list = listed(R"(<R><Name>ä.txt</Name>
        <VersionSummary><VersionId>B</VersionId><Created>18446744073709551615</Created>
            <VersionLabel>-2</VersionLabel></VersionSummary>
        <Deep><VersionSummary><VersionId>A</VersionId></VersionSummary></Deep></R>)");
    EXPECT_EQ(list->name, u"ä.txt");
    ASSERT_EQ(list->versions.size(), 2u);
    EXPECT_EQ(list->versions[0].versionId, "B");
    EXPECT_EQ(list->versions[0].created, std::numeric_limits<std::uint64_t>::max());
    EXPECT_EQ(list->versions[0].versionLabel, -2);
    EXPECT_EQ(list->versions[1].created, 0u);
    EXPECT_EQ(list->versions[1].versionLabel, 0);

    EXPECT_TRUE(listed("<R><Name>a</Name></R>")->versions.empty());
    EXPECT_EQ(listed("<R><Name>a</Name><VersionSummary><Name>b</Name></VersionSummary></R>")->name, u"");
    auto version = [](const std::string& fields) {
        listed("<R><VersionSummary>" + fields + "</VersionSummary></R>");
    };
    EXPECT_THROW(version("<Created/>"), std::invalid_argument);
    EXPECT_THROW(version("<VersionLabel>x</VersionLabel>"), std::invalid_argument);
    EXPECT_THROW(version("<VersionLabel>9223372036854775808</VersionLabel>"), std::out_of_range);
    EXPECT_THROW(version("<Created>18446744073709551616</Created>"), std::out_of_range);
}

} // namespace
