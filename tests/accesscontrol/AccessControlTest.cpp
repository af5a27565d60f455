// Grants, revokes and lists byte for byte, and what is read of replies that say too little or too much.
#include "support/WireTest.h"
#include "tarn/accesscontrol/AccessControlClient.h"
#include "tarn/accesscontrol/AccessControlClientServiceProvider.h"

namespace connector::tarn {

std::string show(const PermissionGrantResponse& granted)
{
    return "id " + granted.permissionId;
}

std::string show(const PermissionListResponse& list)
{
    std::string text;
    for (const auto& each : list.permissions) {
        text += tarntest::fields(each.path, each.bucket, each.subjectName, each.permissionId, each.operation,
                                 each.status) +
                "\n";
    }
    return text;
}

namespace {

using namespace tarntest;
using Bench = WireBench<AccessControlClient, AccessControlClientServiceProvider>;
using Case = WireCase<AccessControlClient>;

const std::string url = "http://host/service/v1/permissions";
const std::string identity = "?locale=en_US&clientString=app%201.0&clientType=test";
const std::string session = "\nx-qz-tarn-session-id: S1\n";

auto grant(const std::u16string& path, const std::u16string& bucket, const std::u16string& subject,
           bool anyone)
{
    return [=](AccessControlClient& client) {
        auto request = located<PermissionGrant>(path, bucket);
        request->subject = subject;
        request->allowNonExistingUser = anyone;
        return watch(client.grantPermission(std::move(request)));
    };
}

auto revoke(const std::string& id)
{
    return [=](AccessControlClient& client) {
        auto request = std::make_unique<PermissionRevoke>();
        request->permissionId = id;
        return watch(client.revokePermission(std::move(request)));
    };
}

auto list(const std::u16string& path, const std::u16string& bucket = {})
{
    return [=](AccessControlClient& client) {
        return watch(client.listPermissions(located<PermissionList>(path, bucket)));
    };
}

const std::string permissions = R"(<R>
    <Permission><PermissionId>P1</PermissionId><Subject><SubjectName>böb</SubjectName></Subject>
        <Resource><Path>/ä</Path><Bucket>alice</Bucket></Resource>
        <Operation>READ_ONLY</Operation><Status>ACTIVE</Status></Permission>
    <Deep><Permission><PermissionId>P2</PermissionId>
        <Subject><SubjectName>two names</SubjectName><SubjectName>are none</SubjectName></Subject>
        <Resource><Path>/two resources</Path></Resource><Resource><Path>/are none</Path></Resource>
        <Status>PENDING</Status></Permission></Deep>
    <Permission><SubjectName>outside its Subject</SubjectName><Path>/outside</Path></Permission>
</R>)";

const std::vector<Case> cases = {
    {"grant in the user's own bucket", grant(u"/a?b#c", u"", u"böb?#", true),
     "put " + url + identity +
         "&path=%2Fa%3Fb%23c&bucket=alice&subject=b%C3%B6b%3F%23&operation=READ_ONLY&allowNonExistingUser="
         "true" +
         session,
     "<R><Deep><PermissionId>P1</PermissionId></Deep></R>", "id P1"},
    {"grant nothing to nobody", grant(u"", u"bob", u"", false),
     "put " + url + identity + "&path=&bucket=bob&subject=&operation=READ_ONLY&allowNonExistingUser=false" +
         session,
     "<R><PermissionId>P1</PermissionId><PermissionId>P2</PermissionId></R>", "id "},
    {"revoke", revoke("a b"), "delete " + url + "/a%20b" + identity + session},
    {"revoke an id with a slash", revoke("/abc"), "delete " + url + "/abc" + identity + session},
    {"revoke no id", revoke(""), "delete " + url + identity + session},
    {"list one path", list(u"/a"), "get " + url + identity + "&path=%2Fa&bucket=alice" + session, permissions,
     "/ä|alice|böb|P1|READ_ONLY|ACTIVE\n|||P2||PENDING\n|||||\n"},
    {"list all whatever the bucket", list(u"", u"bob"), "get " + url + identity + session, "<R/>", ""},
};

TEST(AccessControl, SendsEachRequestAndReadsItsReply)
{
    expectExchanges<Bench>(cases);
    expectRefusals(cases);
}

TEST(AccessControl, ReportsThroughTheFutureWhatKeepsARequestFromBeingBuilt)
{
    Bench bench;
    auto outcome = grant(std::u16string(1, char16_t(0xD800)), u"", u"", false)(*bench.client);
    EXPECT_EQ(outcome(), "The text is not well-formed UTF-16.");
    EXPECT_EQ(bench.transport->count(), 0u);
}

} // namespace
} // namespace connector::tarn
