// Contents that are changed on their way or on the service's disk: nobody takes them for what they were, and nothing that
// was there before is lost to them.
#include "tests/cli/OnTheWay.h"

#include <fstream>
#include <functional>

namespace tarncli::test {
namespace {

using connector::host::test::Ending;
using connector::host::test::FaultServer;
using connector::host::test::ScriptedHttpServer;
using connector::host::test::TrueReply;
using testing::HasSubstr;

TEST_F(OnTheWay, WhatIsNotWhatItShouldBeIsRefused)
{
    const auto damageDigest = [](ScriptedHttpServer::Connection& connection, TrueReply reply) {
        const std::string word = "sha-256=:";
        for (auto at = reply.head.find(word); at != std::string::npos; at = reply.head.find(word, at + 1))
            reply.head[at + 12] = reply.head[at + 12] == 'A' ? 'B' : 'A';
        connection.send(reply.head + reply.body);
    };
    const auto refuses = [&](const std::string& arguments, const std::string& struck, const char* told) {
        const auto result = run(arguments, struck, 2, damageDigest);
        EXPECT_EQ(result.exitCode, 1) << arguments;
        EXPECT_THAT(result.err, HasSubstr(told));
        EXPECT_THAT(contentsOf(alice.work()), testing::ElementsAre(testing::Pair("f", "old"))) << arguments;
    };
    refuses("put -f f /f", "PUT ",
            "what stands there now is what was to be stored, but the reply told another");
    alice.write("f", "newer");
    alice.set("EDITOR", "cp f");
    for (const std::string arguments : {"edit /again", "put f /again"}) { // sent again, in its own place
        const auto result =
            run(arguments + " && tarn cat /again && tarn undo --yes", "PUT ", 1, damageDigest);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_THAT(result.out, testing::StartsWith("newer"));
        EXPECT_EQ(run("ls /again").exitCode, 3);
    }
    alice.write("f", "new");
    EXPECT_EQ(run("put f /again").exitCode, 0);
    alice.write("f", "newer");
    EXPECT_EQ(run("put --new-version f /again", "PUT ", 1, damageDigest).exitCode, 0);
    EXPECT_EQ(run("cat /again; tarn versions /again | wc -l").out, "newer3\n");
    alice.write("f", "old");
    store(content);
    alice.write("f", "old");
    std::fstream(onlyContent(), std::ios::in | std::ios::out)
        .seekp(500'000)
        .put('\1'); // on the service's disk
    for (const auto* arguments : {"get -f /f .", "get -f --continue /f .", "cat /f >/dev/null",
                                  "--json cat /f", "--json-lines get /f -", "edit /f"})
        refuses(arguments, "nothing", ": What has arrived is not what the service says");
    for (const auto* arguments : {"cp /f /copy", "cp -f /f /again"})
        refuses(arguments, "nothing", "\"/f\": What has arrived is not what");
    EXPECT_EQ(run("ls /copy").exitCode, 3);
    EXPECT_EQ(run("cat /again").out, "newer");
    service.terminate();
    const auto check = service.run({"fsck"});
    EXPECT_EQ(check.exitCode, 1);
    EXPECT_THAT(check.out, HasSubstr("alice:/f, version 1: its content is damaged"));
}

/// The service behind something that changes a byte of each content on its way up, as long as `damages` says so.
connector::host::test::Truth damaging(std::uint16_t port, std::function<bool()> damages)
{
    const auto truth = connector::host::test::truthOf(port);
    return [truth, damages = std::move(damages)](std::string request) {
        const bool isChunked = request.ends_with("\r\n0\r\n\r\n");
        const bool isContent =
            request.starts_with("PUT /service/v1/files/") && (isChunked || !request.ends_with("\r\n\r\n"));
        if (isContent && damages()) request[request.size() - (isChunked ? 8 : 1)] ^= 1;
        return truth(request);
    };
}

bool never(const std::string&)
{
    return false;
}

TEST_F(OnTheWay, WhatIsAlwaysDamagedOnItsWayUpLeavesWhatWasThere)
{
    const FaultServer server({}, damaging(service.port(), [] { return true; }), never);
    run("put -q f /small; tarn mkdir /pair; tarn put f /pair/f; mkdir -p pair; date >pair/f");
    const char* const stays = "nothing was stored";
    const char* const restored = "the content from before is the current one again";

    const struct {
        const char* arguments;
        const char* told;
        const char* path;
        std::string there; ///< empty: no such file
    } rows[] = {
        {"put -f f /f", stays, "/f", content},
        {"put -f new /small", stays, "/small", "old"},
        {"put --new-version f /f", restored, "/f", content},
        {"put --new-version - /f", restored, "/f", content},
        {"put f /fresh", stays, "/fresh", ""},
        {"put - /fresh", stays, "/fresh", ""},
        {"cp /f /fresh", stays, "/fresh", ""},
        {"cp -f /f /small", stays, "/small", "old"},
        {"sync pair /pair", stays, "/pair/f", "old"},
        {"edit /f", stays, "/f", content},
        {"edit /fresh", stays, "/fresh", ""},
        {"put -f - /small", "what stands there now is damaged", "/small", "ole"},
    };

    alice.write("f", "old");
    alice.write("new", "new");
    alice.set("EDITOR", "cp new");
    alice.set("TMPDIR", alice.home());
    for (const auto& row : rows) {
        alice.set("TARN_ENDPOINT", server.url());
        const auto result = alice.run(std::string("cat f | tarn ") + row.arguments);
        EXPECT_NE(result.exitCode, 0) << row.arguments;
        EXPECT_THAT(result.err, HasSubstr(row.told)) << row.arguments;
        const auto there = run(std::string("cat ") + row.path);
        EXPECT_EQ(there.exitCode, row.there.empty() ? 3 : 0) << row.arguments;
        EXPECT_EQ(there.out, row.there) << row.arguments;
    }
    EXPECT_THAT(run("undo --list").out, testing::Not(HasSubstr("fresh")));
}

TEST_F(OnTheWay, WhatIsDamagedOnceNeverTakesThePlaceOfWhatAnotherHasStoredSince)
{
    const struct {
        const char* arguments;
        const char* meanwhile; ///< before the second try arrives
        const char* path;
    } rows[] = {
        {"put --new-version f /f", "tarn put --new-version f /f", "/f"},
        {"put f /new", "tarn put --new-version f /new", "/new"},
        {"cp /new /copy", "tarn rm /copy; tarn put f /copy", "/copy"},
    };

    for (const auto& row : rows) {
        int tries = 0;
        const FaultServer server({},
                                 damaging(service.port(),
                                          [&] {
                                              if (++tries == 2) other.run(row.meanwhile);
                                              return tries == 1;
                                          }),
                                 never);
        alice.set("TARN_ENDPOINT", server.url());
        const auto result = alice.run(std::string("tarn ") + row.arguments);
        EXPECT_EQ(result.exitCode, 1) << row.arguments;
        EXPECT_THAT(result.err, HasSubstr("somebody else has changed what stands there")) << row.arguments;
        EXPECT_EQ(run(std::string("cat ") + row.path).out, "theirs") << row.arguments;
    }
}

TEST_F(OnTheWay, WhatIsDamagedAndThenLosesItsReplyIsStoredAndCanBeTakenBack)
{
    alice.write("f", "newer");
    const std::pair<const char*, std::string> rows[] = {{"put f /new", ""},
                                                        {"put --new-version f /f", content}};
    for (const auto& [arguments, before] : rows) {
        int tries = 0;
        const auto isLost = [&](const std::string& request) {
            return request.starts_with("PUT /service/v1/files/") && tries == 2;
        };
        const FaultServer server({"", Ending::noReply, [](auto&, const auto&) {}},
                                 damaging(service.port(), [&] { return ++tries == 1; }), isLost);
        alice.set("TARN_ENDPOINT", server.url());
        const auto result = alice.run(std::string("tarn ") + arguments + "; tarn cat " +
                                      &arguments[std::string(arguments).find('/')]);
        EXPECT_EQ(result.exitCode, 0) << result.err;
        EXPECT_EQ(result.out, "newer");
        EXPECT_EQ(alice.run("tarn undo --yes").exitCode, 0) << arguments;
        EXPECT_EQ(alice.run(std::string("tarn cat ") + &arguments[std::string(arguments).find('/')]).out,
                  before);
    }
}

} // namespace
} // namespace tarncli::test
