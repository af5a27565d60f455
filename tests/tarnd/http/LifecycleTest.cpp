// Starting, stopping and administering a service: what a person at the terminal or an init system relies on.
#include "tests/tarnd/http/ServiceTest.h"

#include <filesystem>
#include <fstream>
#include <thread>

namespace tarnd::test {
namespace {

class Lifecycle : public ServiceTest {
protected:
    /// The head of an upload of ten bytes, and the first three of them.
    std::string halfAnUpload(const std::string& name)
    {
        return "PUT /service/v1/files/" + name +
               "?createMode=CREATE HTTP/1.1\r\nHost: tarn\r\nx-qz-tarn-session-id: " + alice +
               "\r\nContent-Length: 10\r\nExpect: 100-continue\r\n\r\n";
    }

    void waitUntilRefusing()
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        try {
            while (std::chrono::steady_clock::now() < deadline) {
                Wire probe(service.port());
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
        } catch (const std::runtime_error&) {
            return;
        }
        FAIL() << "the service still takes connections";
    }
};

TEST_F(Lifecycle, FinishesWhatIsUnderWayBeforeItStops)
{
    service.signal(SIGHUP); // ends nothing
    Wire upload(service.port());
    upload.send(halfAnUpload("f"));
    ASSERT_EQ(upload.receive().value().status, 100);
    upload.send("01234");
    service.requestTermination();
    waitUntilRefusing();
    upload.send("56789");
    EXPECT_EQ(upload.receive().value().status, 200);
    EXPECT_EQ(service.waitForExit(), 0);

    service.start();
    EXPECT_EQ(asAlice("GET", "/service/v1/files/f").body, "0123456789");
    EXPECT_EQ(service.terminate(), 0);
}

TEST_F(Lifecycle, DoesNotWaitForeverForAClientThatStalls)
{
    Wire upload(service.port());
    upload.send(halfAnUpload("f"));
    ASSERT_EQ(upload.receive().value().status, 100);
    service.requestTermination();
    EXPECT_EQ(service.waitForExit(std::chrono::seconds(15)), 0);

    service.start();
    EXPECT_EQ(asAlice("GET", "/service/v1/files/f").status, 404);
}

TEST_F(Lifecycle, AccountsAreManagedWhileItRuns)
{
    const auto add = service.run({"user", "add", "carol"});
    EXPECT_EQ(add.exitCode, 0) << add.err;
    EXPECT_EQ(add.out.size(), 65) << "the token and a line feed, nothing else";
    const auto first = add.out.substr(0, 64);
    const auto session = logIn(first);
    EXPECT_EQ(send(requestText("GET", "/service/v1/ping", session)).status, 200);
    EXPECT_EQ(service.run({"user", "list"}).out, "alice\nbob\ncarol\n");

    const auto second = service.run({"user", "rotate", "carol"}).out.substr(0, 64);
    EXPECT_EQ(send(requestText("GET", "/service/v1/ping", session)).status, 401);
    EXPECT_EQ(logIn(first), "");
    EXPECT_NE(logIn(second), "");

    EXPECT_EQ(service.run({"user", "remove", "carol"}).exitCode, 0);
    EXPECT_EQ(logIn(second), "");
    put("/f", "content");
    EXPECT_EQ(service.run({"user", "remove", "alice"}).exitCode, 1);
    EXPECT_EQ(service.run({"user", "remove", "alice", "--force"}).exitCode, 0);
    EXPECT_EQ(asAlice("GET", "/service/v1/ping").status, 401);
}

TEST_F(Lifecycle, SaysWhatIsWrongAndHowToGoOn)
{
    struct Case {
        std::vector<std::string> arguments;
        int exitCode;
        std::string hint;
    };

    const auto taken = "127.0.0.1:" + std::to_string(service.port());
    const Case cases[] = {
        {{"serve", "--listen", taken}, 1, "choose another port with --listen"},
        {{"serve", "--listen", "0.0.0.0:0"}, 1, "--tls-cert"},
        {{"serve", "--listen", "nonsense"}, 2, "HOST:PORT"},
        {{"serve", "--listen", "127.0.0.1:"}, 2, "HOST:PORT"},
        {{"serve", "--public-url", "files.example"}, 2, "begins with https://"},
        {{"serve", "--database", "mysql://x"}, 2, "begins with postgresql://"},
        {{"serve", "--database", "postgresql://"}, 2, "begins with postgresql://"},
        {{"serve", "--listen", "127.0.0.1:0", "--tls-cert", "/none", "--tls-key", "/none"}, 1, "/none"},
        {{"serve", "--tls-cert", "/none"}, 2, "--tls-key"},
        {{"serve", "--port", "1"}, 2, "--port"},
        {{"user", "add"}, 2, "NAME"},
        {{"user", "add", "alice"}, 1, "already exists"},
        {{"user", "add", "a/b"}, 1, "not valid"},
        {{"user", "rotate", "nobody"}, 1, "no user"},
        {{}, 2, "subcommand"},
    };
    for (const auto& [arguments, exitCode, hint] : cases) {
        const auto result = service.run(arguments);
        EXPECT_EQ(result.exitCode, exitCode) << result.err;
        EXPECT_NE(result.err.find(hint), std::string::npos) << result.err;
        EXPECT_EQ(result.out, "");
    }
}

TEST_F(Lifecycle, OnlyOneServiceWorksOnASqliteDirectory)
{
    if (std::getenv("TARN_TEST_DATABASE") != nullptr)
        GTEST_SKIP() << "several may share a PostgreSQL database";
    const auto second = service.run({"serve", "--listen", "127.0.0.1:0"});
    EXPECT_EQ(second.exitCode, 1);
    EXPECT_NE(second.err.find("stop it first"), std::string::npos) << second.err;
}

TEST_F(Lifecycle, FsckFindsAContentThatHasChanged)
{
    put("/f", "content");
    ASSERT_EQ(service.terminate(), 0);
    EXPECT_EQ(service.run({"fsck"}).exitCode, 0);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(service.dataDir() / "contents"))
        if (entry.is_regular_file()) std::ofstream(entry.path()) << "c0ntent";
    const auto fsck = service.run({"fsck"});
    EXPECT_EQ(fsck.exitCode, 1);
    EXPECT_NE(fsck.out.find("/f"), std::string::npos) << fsck.out;
}

class Verbose : public ServiceTest {
protected:
    Verbose() : ServiceTest({"--verbose", "--public-url", "https://files.example/tarn/"}) {}
};

TEST_F(Verbose, LogsEveryRequestAndNoSecret)
{
    put("/f", "content");
    const auto url = textOf(asAlice("GET", "/service/v1/public/urls/f").body, "PublicAccessUrl");
    ASSERT_EQ(url.substr(0, 34), "https://files.example/tarn/public/");
    const auto token = url.substr(34);
    ASSERT_EQ(send(requestText("GET", "/public/" + token)).status, 200);
    ASSERT_EQ(service.terminate(), 0);
    const auto log = service.errors();
    EXPECT_NE(log.find("PUT /service/v1/files/f 200 "), std::string::npos) << log;
    EXPECT_NE(log.find("GET /public/... 200 "), std::string::npos) << log;
    for (const auto& secret : {aliceToken, alice, token})
        EXPECT_EQ(log.find(secret), std::string::npos);
}

} // namespace
} // namespace tarnd::test
