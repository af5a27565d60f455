// What an administrator limits, ends or forbids takes effect at once and exactly, and what stands in the
// configuration file counts as if it had been typed.
#include "tests/tarnd/http/ServiceTest.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <iterator>
#include <thread>
#include <utility>

namespace tarnd::test {
namespace {

using ::testing::HasSubstr;

class Administration : public ServiceTest {
protected:
    std::string tell(std::vector<std::string> arguments)
    {
        const auto result = service.run(std::move(arguments));
        EXPECT_EQ(result.exitCode, 0) << result.err;
        return result.out;
    }

    int store(const std::string& path, std::size_t size, const std::string& query = "CREATE_OR_UPDATE")
    {
        return asAlice("PUT", "/service/v1/files" + path + "?createMode=" + query, std::string(size, 'x'))
            .status;
    }
};

TEST_F(Administration, SessionsLinksAndAccountsEndWhenTold)
{
    put("/f", "content");
    const auto url = parseXml(asAlice("GET", "/service/v1/public/urls/f").body).only("PublicAccessUrl");
    const auto link = url.substr(service.url().size());
    const auto statusOf = [&](const std::string& target) { return send(requestText("GET", target)).status; };

    tell({"user", "disable", "alice"});
    EXPECT_EQ(asAlice("GET", "/service/v1/ping").status, 401);
    EXPECT_EQ(outcomeOf(send(requestText("GET", "/service/v1/login", "", "",
                                         "x-qz-authentication-token: " + aliceToken + "\r\n"))),
              "403 Your account is disabled; ask whoever runs the service.");
    EXPECT_EQ(statusOf(link), 404);
    EXPECT_THAT(tell({"user", "list", "--long"}), HasSubstr("disabled"));
    tell({"user", "enable", "alice"});
    EXPECT_EQ(statusOf(link), 200);
    alice = logIn(aliceToken);

    const auto sessions = tell({"session", "list"});
    EXPECT_THAT(sessions, HasSubstr(" bob "));
    EXPECT_THAT(sessions, HasSubstr("Z 127.0.0.1\n"));
    tell({"session", "end", sessions.substr(0, 12)}); // sorted by user: alice's
    EXPECT_EQ(asAlice("GET", "/service/v1/ping").status, 401);
    tell({"session", "end", "--user", "bob"});
    EXPECT_EQ(send(requestText("GET", "/service/v1/ping", bob)).status, 401);
    EXPECT_EQ(tell({"session", "list"}), "");
    EXPECT_EQ(service.run({"session", "end"}).exitCode, 2);

    const auto links = tell({"link", "list"});
    EXPECT_THAT(links, HasSubstr(" never                alice:/f\n"));
    EXPECT_EQ(links.find(link.substr(link.rfind('/') + 1, 12)), std::string::npos);
    tell({"link", "revoke", links.substr(0, 12)});
    EXPECT_EQ(statusOf(link), 404);
    EXPECT_EQ(service.run({"link", "revoke", links.substr(0, 12)}).exitCode, 1);
}

TEST_F(Administration, NobodyGetsBeyondTheQuota)
{
    ASSERT_EQ(store("/kept", 4), 200);
    tell({"user", "quota", "alice", "10"});
    alice = logIn(aliceToken);

    const struct {
        std::string path, query;
        std::size_t size;
        int status;
    } puts[] = {
        {"/a", "CREATE", 7, 507},
        {"/a", "CREATE", 6, 200},
        {"/a", "UPDATE", 6, 200},
        {"/a", "UPDATE&createNewVersion=true", 1, 507},
        {"/a", "UPDATE", 7, 507},
        {"/a", "UPDATE", 1, 200},
        {"/a", "UPDATE&createNewVersion=true", 5, 200},
    };

    for (const auto& [path, query, size, status] : puts)
        EXPECT_EQ(store(path, size, query), status) << path << " " << query << " " << size;
    const auto chunked = requestText("PUT", "/service/v1/files/b?createMode=CREATE", alice, "",
                                     "Transfer-Encoding: chunked\r\n");
    // While it comes, of which there is no end.
    EXPECT_THAT(send(chunked + "61a80\r\n" + std::string(400'000, 'x')).body,
                HasSubstr("You may store 10 bytes"));
    EXPECT_EQ(asAlice("PUT", "/service/v1/versions/files/a?versionLabel=1&createNewVersion=true").status,
              507);
    ASSERT_EQ(asAlice("DELETE", "/service/v1/files/a").status, 200);

    std::atomic<int> stored = 0;
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 64; ++i)
            threads.emplace_back([&, i] { stored += store("/n" + std::to_string(i), 2, "CREATE") == 200; });
    }
    EXPECT_EQ(stored, 3);
    Wire begun(service.port());
    begun.send(requestText("PUT", "/service/v1/files/begun?createMode=CREATE", alice, "",
                           "Transfer-Encoding: chunked\r\nExpect: 100-continue\r\n"));
    ASSERT_EQ(begun.receive().value().status, 100);
    tell({"user", "quota", "alice", "0"});
    begun.send("4\r\nxxxx\r\n0\r\n\r\n");
    EXPECT_EQ(begun.receive().value().status, 200);
    EXPECT_EQ(store("/large", 96), 200);
    EXPECT_THAT(tell({"user", "list", "-l"}), HasSubstr(" 110 bytes of any "));
    service.terminate();
    EXPECT_EQ(service.run({"fsck"}).exitCode, 0) << "counts what versions take";
}

TEST_F(Administration, PruningLeavesTheCurrentVersionsAndThoseThatAreNotOldInBothRespects)
{
    const auto audit = service.dataDir().parent_path() / "audit";
    const auto versionsOf = [&](const std::string& path) {
        std::string labels;
        const auto history = parseXml(asAlice("GET", "/service/v1/versions/files" + path).body);
        for (const auto* label : history.all("VersionLabel"))
            labels += label->text + " ";
        return labels;
    };
    for (const auto* path : {"/f", "/g"})
        for (int i = 1; i <= 5; ++i)
            ASSERT_EQ(store(path, 10, "CREATE_OR_UPDATE&createNewVersion=true"), 200);
    for (const auto* query :
         {"versionLabel=2", "versionLabel=1&createNewVersion=true"}) // the second shares a content
        require(asAlice("PUT", std::string("/service/v1/versions/files/") + (query[13] == '2' ? "f?" : "g?") +
                                   query));

    const struct {
        std::vector<std::string> rule;
        std::string told, f, g;
    } rows[] = {
        {{"--keep", "1", "--older-than", "1h"},
         "Deleted 0 versions of 0 bytes.",
         "5 4 3 2 1 ",
         "6 5 4 3 2 1 "},
        {{"--keep", "3", "-n"}, "Would delete 4 versions of 40 bytes.", "5 4 3 2 1 ", "6 5 4 3 2 1 "},
        {{"--keep", "3", "--user", "bob"}, "Deleted 0 versions", "5 4 3 2 1 ", "6 5 4 3 2 1 "},
        {{"--keep", "3", "--audit-log", audit}, "Deleted 4 versions of 40 bytes.", "5 4 3 2 ", "6 5 4 "},
        {{"--keep", "1"}, "Deleted 4 versions of 40 bytes.", "5 2 ", "6 "},
    };

    for (const auto& [rule, told, ofF, ofG] : rows) {
        auto arguments = rule;
        arguments.insert(arguments.begin(), "prune");
        EXPECT_THAT(tell(arguments), HasSubstr(told));
        EXPECT_EQ(versionsOf("/f"), ofF) << told;
        EXPECT_EQ(versionsOf("/g"), ofG) << told;
    }
    EXPECT_EQ(asAlice("GET", "/service/v1/files/g").body, std::string(10, 'x'));
    EXPECT_THAT(tell({"user", "list", "-l"}), HasSubstr(" 30 bytes of any "));
    std::ifstream log(audit);
    EXPECT_THAT(std::string(std::istreambuf_iterator<char>(log), {}),
                HasSubstr(R"("event":"prune","user":"alice","versions":4,"bytes":40})"));
    const auto fsck = service.run({"fsck"}); // beside the service
    EXPECT_EQ(fsck.exitCode, 0) << fsck.out << fsck.err;
    EXPECT_THAT(fsck.out, HasSubstr(" 3 contents of 30 bytes"));
    EXPECT_EQ(service.run({"prune"}).exitCode, 2);
    EXPECT_EQ(service.run({"prune", "--older-than", "9"}).exitCode, 2);
}

TEST_F(Administration, AConfigurationFileCountsUnlessTheCommandLineSaysOtherwise)
{
    const auto file = service.dataDir().parent_path() / "tarnd.toml";
    const auto say = [&](const std::string& text) { std::ofstream(file) << text; };
    const std::pair<std::string, std::string> refused[] = {
        {"listen = \"127.0.0.1:0\"\nkeep-free = \"5X\"\n", "line 2: keep-free: '5X' is not a size, such as"},
        {"\n\nlisen = \":0\"\n", "line 3: there is no \"lisen\""},
        {"session-minutes = 0\n", "line 1: session-minutes: '0' is not a whole number from 1"},
        {"log = [\"text\"]\n", "line 1: log must be text, a number, true or false."},
        {"log = \"loud\"\n", "line 1: log: 'loud' is none of json, off, text."},
        {"listen = \n", "line 1: "},
        {"tls-cert = \"a\"\n", "--tls-cert requires --tls-key"},
    };
    for (const auto& [text, hint] : refused) {
        say(text);
        for (const auto& result :
             {service.runBare({"config", "check", file}), service.run({"serve", "--config", file})}) {
            EXPECT_EQ(result.exitCode, 2) << text;
            EXPECT_THAT(result.err, HasSubstr(hint));
        }
    }
    say("max-file-size = \"1K\"\nmetrics = \"off\"\nlog = 'json'\nlog-file = \"log\"\ninsecure = false\n");
    EXPECT_EQ(service.runBare({"config", "check", file}).exitCode, 0);
    service.terminate();
    service.addArguments({"--config", file, "--metrics", "loopback"});
    service.start();
    EXPECT_EQ(store("/f", 1025), 413);
    EXPECT_EQ(send(requestText("GET", "/metrics")).status, 200);
    EXPECT_TRUE(std::filesystem::exists(file.parent_path() / "log"));
    const auto readAnew = [&](const std::string& text, const std::string& line) {
        say(text);
        service.signal(SIGHUP);
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (service.errors().find(line) == std::string::npos && std::chrono::steady_clock::now() < limit)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        EXPECT_THAT(service.errors(), HasSubstr(line));
    };
    readAnew("max-file-size = 2000\nuser-sessions = 1\naddress-sessions = 2",
             "tarnd: limits and certificate are read anew");
    EXPECT_EQ(store("/f", 1025), 200);
    const auto before = std::exchange(alice, logIn(aliceToken));
    EXPECT_EQ(send(requestText("GET", "/service/v1/ping", before)).status, 401);
    EXPECT_EQ(logIn(service.addUser("carol")), "") << "beside alice and bob";
    readAnew("max-file-size = '1X'", "stay as they were: ");
    EXPECT_EQ(store("/f", 1025), 200);
}

} // namespace
} // namespace tarnd::test
