// Version lists and restores byte for byte, and the numbers in their replies: signed in a list, unsigned in a
// restore, echoed from the request where the reply is silent.
#include "support/WireTest.h"
#include "tarn/versioning/VersioningClient.h"
#include "tarn/versioning/VersioningClientServiceProvider.h"

namespace connector::tarn {

std::string show(const VersionRestoreResponse& restored)
{
    return tarntest::fields(restored.versionId, restored.versionLabel);
}

std::string show(const VersionListResponse& list)
{
    std::string text = tarntest::asText(list.name) + ":";
    for (const auto& each : list.versions)
        text += " " + tarntest::fields(each.versionId, each.created, each.versionLabel);
    return text;
}

namespace {

using namespace tarntest;
using Bench = WireBench<VersioningClient, VersioningClientServiceProvider>;
using Case = WireCase<VersioningClient>;

const std::string url = "http://host/service/v1/versions/files";
const std::string identity = "?locale=en_US&clientString=app%201.0&clientType=test";
const std::string session = "\nx-qz-tarn-session-id: S1\n";

auto restore(const std::u16string& path, const std::string& id, std::int64_t label, bool createNewVersion)
{
    return [=](VersioningClient& client) {
        auto request = located<VersionRestore>(path);
        request->versionId = id;
        request->versionLabel = label;
        request->createNewVersion = createNewVersion;
        return watch(client.restoreVersion(std::move(request)));
    };
}

auto list(const std::u16string& path, const std::u16string& bucket = {})
{
    return [=](VersioningClient& client) {
        return watch(client.listVersions(located<VersionList>(path, bucket)));
    };
}

const std::string versions = R"(<R><Name>ä.txt</Name>
    <VersionSummary><VersionId>B</VersionId><Created>18446744073709551615</Created>
        <VersionLabel>-2</VersionLabel></VersionSummary>
    <Deep><VersionSummary><VersionId>A</VersionId></VersionSummary></Deep></R>)";

const std::vector<Case> cases = {
    {"restore in place", restore(u"/a b.txt", "A17", -3, false),
     "put " + url + "/a%20b.txt" + identity + "&versionId=A17&versionLabel=-3&createNewVersion=false" +
         session,
     "<R><VersionId>B</VersionId><VersionLabel>9</VersionLabel></R>", "B|9"},
    {"restore as newest without an id", restore(u"/a", "", 0, true),
     "put " + url + "/a" + identity + "&versionId=&versionLabel=0&createNewVersion=true" + session, "<R/>",
     "|0"},
    {"list without the bucket", list(u"/a", u"bob"), "get " + url + "/a" + identity + session, versions,
     "ä.txt: B|18446744073709551615|-2 A|0|0"},
    {"path joined as it stands", list(u"a"), "get " + url + "a" + identity + session, "<R><Name>a</Name></R>",
     "a:"},
};

TEST(Versioning, SendsEachRequestAndReadsItsReply)
{
    expectExchanges<Bench>(cases);
    expectRefusals(cases);
}

TEST(Versioning, ReadsNumbersAndWhatIsAmbiguous)
{
    const auto restored = restore(u"/a", "A17", -3, false);
    const auto listed = list(u"/a");
    auto label = [](const std::string& text) { return "<R><VersionLabel>" + text + "</VersionLabel></R>"; };
    auto version = [](const std::string& fields) {
        return "<R><VersionSummary>" + fields + "</VersionSummary></R>";
    };
    expectReadings<Bench>(std::vector<Reading<VersioningClient>>{
        {restored, "<R/>", "A17|-3"},
        {restored, "<R><VersionId/><VersionLabel/></R>", "A17|-3"},
        {restored, "<R><VersionId>B</VersionId><VersionId>C</VersionId><VersionLabel>9</VersionLabel></R>",
         "A17|9"},
        {restored, label("-2"), "A17|-2"}, // 2^64 - 2 in 64 bits
        {restored, label("18446744073709551615"), "A17|-1"},
        {restored, label("18446744073709551616"), "stoull"},
        {restored, label("nine"), "stoull"},
        {listed, "<R><Name>a</Name><VersionSummary><Name>b</Name></VersionSummary></R>", ": |0|0"},
        {listed, version("<Created/>"), "stoull"},
        {listed, version("<VersionLabel>x</VersionLabel>"), "stoll"},
        {listed, version("<VersionLabel>9223372036854775808</VersionLabel>"), "stoll"},
        {listed, version("<Created>18446744073709551616</Created>"), "stoull"},
    });
}

} // namespace
} // namespace connector::tarn
