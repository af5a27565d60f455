// Starting, stopping and administering a service: what a person at the terminal or an init system relies on.
#include "tests/tarnd/http/ServiceTest.h"

#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>

namespace tarnd::test {
namespace {

class Lifecycle : public ServiceTest {
protected:
    /// Sends the head of an upload, and its first half when the service has asked for it.
    void sendHalf(Wire& wire)
    {
        const auto upload = requestText("PUT", "/service/v1/files/f?createMode=CREATE", alice, "0123456789",
                                        "Expect: 100-continue\r\n");
        wire.send(upload.substr(0, upload.size() - 10));
        ASSERT_EQ(wire.receive().value().status, 100);
        wire.send("01234");
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
    Wire upload(service.port());
    sendHalf(upload);
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
    sendHalf(upload);
    service.requestTermination();
    EXPECT_EQ(service.waitForExit(std::chrono::seconds(15)), 0);

    service.start();
    EXPECT_EQ(asAlice("GET", "/service/v1/files/f").status, 404);
}

TEST_F(Lifecycle, WaitsAsLongAsItIsToldToUntilItIsAskedAgain)
{
    service.terminate();
    service.addArguments({"--drain-timeout", "3600"});
    service.start();
    Wire upload(service.port());
    sendHalf(upload);
    service.requestTermination();
    waitUntilRefusing();
    service.requestTermination();
    EXPECT_EQ(service.waitForExit(), 0);
}

TEST_F(Lifecycle, GoesOnWhenAFileMayGrowNoFurther)
{
    if (service.usesObjects()) GTEST_SKIP() << "contents are no files";
    const std::string content(9 << 20, 'x');
    const rlimit limit{8 << 20, 8 << 20};
    ASSERT_EQ(::prlimit(service.processId(), RLIMIT_FSIZE, &limit, nullptr), 0);
    EXPECT_EQ(asAlice("PUT", "/service/v1/files/f?createMode=CREATE", content).status, 507);
    EXPECT_EQ(asAlice("GET", "/service/v1/ping").status, 200);
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
    std::vector<Case> cases = {
        {{"serve", "--listen", taken}, 1, "choose another port with --listen"},
        {{"serve", "--listen", "0.0.0.0:0"}, 1, "--tls-cert"},
        {{"serve", "--listen", "nonsense"}, 2, "HOST:PORT"},
        {{"serve", "--listen", "127.0.0.1:"}, 2, "HOST:PORT"},
        {{"serve", "--listen", "127.0.0.1:65536"}, 2, "HOST:PORT"},
        {{"serve", "--config", "/proc"}, 2, "is a directory"},
        {{"serve", "--public-url", "files.example"}, 2, "begins with https://"},
        {{"serve", "--database", "mysql://u:secret@h/n"}, 2, "begins with postgresql://"},
        {{"serve", "--database", "postgresql://"}, 2, "begins with postgresql://"},
        {{"serve", "--listen", "127.0.0.1:0", "--tls-cert", "/none", "--tls-key", "/none"}, 1, "/none"},
        {{"serve", "--listen", "127.0.0.1:0", "--tls-cert", "/", "--tls-key", "/none"}, 1, "read /:"},
        {{"serve", "--tls-cert", "/none"}, 2, "--tls-key"},
        {{"serve", "--port", "1"}, 2, "--port"},
        {{"servee"}, 2, "servee"},
        {{"serve", "--idle-timeout", "0"}, 2, "from 1 to 86400"},
        {{"serve", "--max-file-size", "-1"}, 2, "64M or 5G"},
        {{"serve", "--max-file-size", "8192P"}, 2, "64M or 5G"},
        {{"serve", "--keep-free", "64MB"}, 2, "64M or 5G"},
        {{"serve", "--session-minutes", "0"}, 2, "from 1 to 525600"},
        {{"serve", "--readers", "257"}, 2, "from 1 to 256"},
        {{"user", "add"}, 2, "NAME"},
        {{"user", "add", "alice"}, 1, "already exists"},
        {{"user", "add", "a/b"}, 1, "not valid"},
        {{"user", "rotate", "nobody"}, 1, "no user"},
        {{"user", "remove", "nobody"}, 1, "no user"},
        {{}, 2, "subcommand"},
    };
    if (!service.usesPostgres()) cases.push_back({{"serve", "--listen", "127.0.0.1:0"}, 1, "stop it first"});
    for (const auto& [arguments, exitCode, hint] : cases) {
        const auto result = service.run(arguments);
        EXPECT_EQ(result.exitCode, exitCode) << result.err;
        EXPECT_NE(result.err.find(hint), std::string::npos) << result.err;
        EXPECT_EQ(result.out + (result.err.find("secret") == result.err.npos ? "" : result.err), "");
    }
}

/// As an init system does it: who connects before there is a service, or between two, waits.
TEST(HandedOverSocket, IsListenedOn)
{
    const int listening = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    ASSERT_TRUE(bind(listening, any, length) == 0 && listen(listening, 8) == 0 &&
                getsockname(listening, any, &length) == 0);
    const TarndProcess folder;
    const auto script =
        "exec 3<&" + std::to_string(listening) +
        "; export LISTEN_FDS=1; for round in 1 2; do "
        "sh -c 'LISTEN_PID=$$ exec \"$0\" serve --data \"$1\" --listen 192.0.2.1:1' \"$0\" \"$1\" & "
        "server=$!; curl -sf -m 30 $2/health/live || exit; kill $server; wait $server || exit; done";
    const auto result =
        runCommand({"/bin/bash", "-c", script, std::getenv("TARN_BIN_DIR") + std::string("/tarnd"),
                    folder.dataDir(), "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port))});
    close(listening);
    EXPECT_EQ(result.exitCode, 0) << result.out << result.err;
}

TEST(Tls, IsOf12OrNewerAndTakesANewCertificateWhileItRuns)
{
    const TarndProcess files; // never started: a folder
    const auto folder = files.dataDir().string();
    const auto shell = [&](const std::string& command) {
        return runCommand({"sh", "-c", "cd " + folder + " && " + command + " </dev/null 2>&1"}).out;
    };
    shell("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /CN=test -keyout key "
          "-out cert");
    TarndProcess service(
        {"--tls-cert", folder + "/cert", "--tls-key", folder + "/key", "--max-file-size", "1M"});
    service.start();
    const auto session =
        "x-qz-tarn-session-id: $(curl -sk -H 'x-qz-authentication-token: " + service.addUser("alice") + "' " +
        service.url() + "/service/v1/login | sed 's/.*<TarnSessionId>//; s/<.*//')";
    for (const auto& [head, told] :
         {std::pair(std::string("no: session"), "Your session"), std::pair(session, "larger than")})
        EXPECT_THAT(shell("(head -c 20M /dev/zero | curl -sk -T - -H \"" + head + "\" '" + service.url() +
                          "/service/v1/files/f?createMode=CREATE')"),
                    ::testing::HasSubstr(told))
            << "while it is still being sent";
    // At level 0 the client itself takes the old version, so that the refusal is the service's.
    const auto connect = "openssl s_client -cipher ALL:@SECLEVEL=0 -connect " + service.url().substr(8);
    EXPECT_THAT(shell(connect + " -tls1_2"), ::testing::HasSubstr("New, TLSv1.2"));
    EXPECT_THAT(shell(connect + " -tls1_1"), ::testing::HasSubstr("unexpected eof"))
        << "the service hangs up";

    const auto subject = [&] {
        return shell("(" + connect + " </dev/null 2>/dev/null | openssl x509 -noout -subject)");
    };
    const auto says = [&](const std::string& told) {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (service.errors().find(told) == std::string::npos && std::chrono::steady_clock::now() < limit)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
    };
    shell("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -subj /CN=renewed "
          "-keyout new -out cert");
    service.signal(SIGHUP);
    says("stay as they were"); // certificate and key do not belong together
    EXPECT_THAT(subject(), ::testing::HasSubstr("CN = test"));
    shell("mv new key");
    says("are read anew"); // without being told
    EXPECT_THAT(subject(), ::testing::HasSubstr("CN = renewed"));
}

} // namespace
} // namespace tarnd::test
