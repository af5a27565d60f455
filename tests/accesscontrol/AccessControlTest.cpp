// Grants, revokes and lists byte for byte, and what is read of replies that say too little or too much.
#include "support/WireTest.h"
#include "tarn/accesscontrol/AccessControlClient.h"
#include "tarn/accesscontrol/AccessControlClientServiceProvider.h"

namespace {

using namespace connector::tarn;
using namespace tarntest;
using Bench = WireBench<AccessControlClient, AccessControlClientServiceProvider>;
using Case = WireCase<AccessControlClient>;

const std::string url = "http://host/service/v1/permissions";
const std::string identity = "?locale=en_US&clientString=app%201.0&clientType=test";
const std::string session = "\nx-qz-tarn-session-id: S1\n";

std::unique_ptr<PermissionGrant> grant(const std::u16string& path, const std::u16string& bucket,
                                       const std::u16string& subject, bool allowNonExistingUser)
{
    auto request = located<PermissionGrant>(path, bucket);
    request->subject = subject;
    request->allowNonExistingUser = allowNonExistingUser;
    return request;
}

std::unique_ptr<PermissionRevoke> revoke(const std::string& id)
{
    auto request = std::make_unique<PermissionRevoke>();
    request->permissionId = id;
    return request;
}

class AccessControlOnTheWire : public testing::TestWithParam<Case> {};

TEST_P(AccessControlOnTheWire, SendsOneRequestAndReportsHowItEnds)
{
    expectExchange<Bench>(GetParam());
}

TEST_P(AccessControlOnTheWire, SendsNothingWithoutSessionOrConnector)
{
    expectRefusal(GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    , AccessControlOnTheWire,
    testing::Values(
        Case{
            "GrantInTheUsersOwnBucket",
            [](auto& c) { return watch(c.grantPermission(grant(u"/a?b", u"", u"böb", true))); },
            "put " + url + identity +
                "&path=%2Fa%3Fb&bucket=alice&subject=b%C3%B6b&operation=READ_ONLY&allowNonExistingUser=true" +
                session},
        Case{"GrantNothingToNobody",
             [](auto& c) { return watch(c.grantPermission(grant(u"", u"bob", u"", false))); },
             "put " + url + identity +
                 "&path=&bucket=bob&subject=&operation=READ_ONLY&allowNonExistingUser=false" + session},
        Case{"Revoke", [](auto& c) { return watch(c.revokePermission(revoke("a b"))); },
             "delete " + url + "/a%20b" + identity + session},
        Case{"RevokeOfAnIdWithASlash", [](auto& c) { return watch(c.revokePermission(revoke("/abc"))); },
             "delete " + url + "/abc" + identity + session},
        Case{"RevokeOfNoId", [](auto& c) { return watch(c.revokePermission(revoke(""))); },
             "delete " + url + identity + session},
        Case{"ListOnePath", [](auto& c) { return watch(c.listPermissions(located<PermissionList>(u"/a"))); },
             "get " + url + identity + "&path=%2Fa&bucket=alice" + session},
        Case{"ListAllWhateverTheBucket",
             [](auto& c) { return watch(c.listPermissions(located<PermissionList>(u"", u"bob"))); },
             "get " + url + identity + session}),
    caseName<Case>);

TEST(AccessControlClient, ReportsThroughTheFutureWhatKeepsARequestFromBeingBuilt)
{
    Bench bench;
    auto outcome =
        watch(bench.client->grantPermission(grant(std::u16string(1, char16_t(0xD800)), u"", u"", false)));
    EXPECT_EQ(outcome(), "The text is not well-formed UTF-16.");
    EXPECT_EQ(bench.transport->count(), 0u);
}

TEST(AccessControlReplies, NameTheGrantOnlyWhenThereIsOneId)
{
    auto granted = [](const std::string& reply) {
        Bench bench;
        auto future = bench.client->grantPermission(grant(u"/a", u"", u"bob", false));
        bench.transport->answer(200, reply);
        return future.get()->permissionId;
    };
    EXPECT_EQ(granted("<R><Deep><PermissionId>P1</PermissionId></Deep></R>"), "P1");
    EXPECT_EQ(granted("<R><PermissionId>P1</PermissionId><PermissionId>P2</PermissionId></R>"), "");
    EXPECT_EQ(granted("<R/>"), "");
}

TEST(AccessControlReplies, ReadEachGrantByItself)
{
    Bench bench;
    auto future = bench.client->listPermissions(located<PermissionList>(u""));
    bench.transport->answer(200, R"(<R>
        <Permission><PermissionId>P1</PermissionId><Subject><SubjectName>böb</SubjectName></Subject>
            <Resource><Path>/ä</Path><Bucket>alice</Bucket></Resource>
            <Operation>READ_ONLY</Operation><Status>ACTIVE</Status></Permission>
        <Deep><Permission><PermissionId>P2</PermissionId>
            <Subject><SubjectName>a</SubjectName><SubjectName>b</SubjectName></Subject>
            <Resource><Path>/1</Path></Resource><Resource><Path>/2</Path></Resource>
            <Status>PENDING</Status></Permission></Deep>
        <Permission><SubjectName>outside its Subject</SubjectName><Path>/outside</Path></Permission>
    </R>)");
    auto permissions = future.get()->permissions;
    ASSERT_EQ(permissions.size(), 3u);
    EXPECT_EQ(permissions[0].permissionId, "P1");
    EXPECT_EQ(permissions[0].subjectName, u"böb");
    EXPECT_EQ(permissions[0].path, u"/ä");
    EXPECT_EQ(permissions[0].bucket, u"alice");
    EXPECT_EQ(permissions[0].operation, "READ_ONLY");
    EXPECT_EQ(permissions[0].status, "ACTIVE");
    EXPECT_EQ(permissions[1].permissionId, "P2");
    EXPECT_EQ(permissions[1].subjectName, u"") << "two names are none";
    EXPECT_EQ(permissions[1].path, u"") << "two resources are none";
    EXPECT_EQ(permissions[1].status, "PENDING");
    EXPECT_EQ(permissions[2].subjectName, u"");
    EXPECT_EQ(permissions[2].path, u"");
}

} // namespace
