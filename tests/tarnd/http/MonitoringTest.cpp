// What an operator sees of a running service: health, numbers and logs must be true, and tell no secret.
#include "tests/tarnd/http/ServiceTest.h"

#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <thread>

namespace tarnd::test {
namespace {

using ::testing::HasSubstr;

class Monitoring : public ServiceTest {
protected:
    Monitoring() : ServiceTest({"--public-url", "https://files.example/tarn/", "--log", "json"})
    {
        service.terminate();
        service.addArguments({"--log-file", log, "--audit-log", audit});
        service.start();
        alice = logIn(aliceToken);
    }

    static std::string read(const std::string& file)
    {
        std::ifstream in(file);
        return {std::istreambuf_iterator<char>(in), {}};
    }

    const std::string log = service.dataDir().parent_path() / "log";
    const std::string audit = service.dataDir().parent_path() / "audit";
};

TEST_F(Monitoring, LogsSayWhoDidWhatAndHoldNoSecret)
{
    put("/f", "content");
    const auto url = parseXml(asAlice("GET", "/service/v1/public/urls/f").body).only("PublicAccessUrl");
    ASSERT_EQ(url.substr(0, 34), "https://files.example/tarn/public/");
    const auto link = url.substr(34);
    const auto opened = send(requestText("GET", "/public/" + link));
    const auto mistyped = send(requestText("GET", "/Public/" + link));
    const auto grant = "/service/v1/permissions?path=/f&subject=bob&operation=READ_ONLY";
    asAlice("PUT", grant);
    std::filesystem::rename(log, log + ".1");
    std::filesystem::rename(audit, audit + ".1");
    service.signal(SIGHUP);
    while (!std::filesystem::exists(audit)) // bounded by the test's own limit
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    asAlice("DELETE", "/service/v1/files/f");
    logIn("wrong");
    ASSERT_EQ(service.terminate(), 0);

    const auto lines = read(log + ".1") + read(log);
    const auto events = read(audit + ".1") + read(audit);
    const std::pair<std::string, std::string> expected[] = {
        {lines,
         R"("user":"alice","method":"PUT","route":"/service/v1/files","path":"/service/v1/files/f","status":200,"received":7,)"},
        {lines, R"("route":"/public","path":"/public/...","status":200,"received":0,"sent":7,)"},
        {lines, R"("request":")" + opened.headers.at("x-request-id")},
        {lines, R"("route":"-","path":"-","status":400)"},
        {events, R"("event":"login","user":"alice","address":"127.0.0.1","status":200)"},
        {events, R"("event":"login","user":"","address":"127.0.0.1","status":401)"},
        {events, R"("event":"link","user":"alice","address":"127.0.0.1","status":200,"item":"/f")"},
        {events,
         R"("event":"grant","user":"alice","address":"127.0.0.1","status":200,"path":"/f","subject":"bob")"},
        {read(audit), R"("event":"remove","user":"alice","address":"127.0.0.1","status":200,"item":"/f")"},
    };
    for (const auto& [text, part] : expected)
        EXPECT_THAT(text, HasSubstr(part));
    for (const auto& secret : {aliceToken, alice, link})
        EXPECT_EQ((lines + events + service.errors()).find(secret), std::string::npos);
    std::istringstream each(lines + events);
    for (std::string line; std::getline(each, line);)
        EXPECT_TRUE(nlohmann::json::accept(line)) << line;
}

TEST_F(Monitoring, NumbersCountWhatWasDoneAndHealthSaysWhatIsWrong)
{
    EXPECT_EQ(service.run({"status"}).exitCode, service.usesPostgres() ? 1 : 0);
    const auto unreadable = TarndProcess::runBare({"status", "--data", log});
    EXPECT_EQ(unreadable.exitCode, 1);
    EXPECT_THAT(unreadable.err, HasSubstr("cannot be used: Not a directory"));
    Wire wire(service.port()); // one connection: a request is counted before the next one on it
    const auto ask = [&](const std::string& request) {
        wire.send(request);
        return wire.receive().value_or(WireReply{});
    };
    ask(requestText("PUT", "/service/v1/files/f?createMode=CREATE", alice, "content"));
    ask(requestText("GET", "/service/v1/files/f", alice));
    ask(requestText("GET", "/service/v1/files/none", alice));
    const auto numbers = ask(requestText("GET", "/metrics"));
    for (const auto& line :
         {R"(tarnd_requests_total\{method="PUT",route="/service/v1/files",status="200"\} 1)",
          R"(tarnd_requests_total\{method="GET",route="/service/v1/files",status="404"\} 1)",
          R"(tarnd_request_duration_seconds_bucket\{method="GET",route="/service/v1/files",le="\+Inf"\} 2)",
          R"(tarnd_received_bytes_total 7)", R"(tarnd_sessions [1-9])", R"(tarnd_requests_in_progress 1)",
          R"(tarnd_transfers\{direction="out"\} 0)", R"(tarnd_commit_duration_seconds_count [1-9]\d*)",
          R"(tarnd_content_sync_duration_seconds_count 1)", R"(tarnd_disk_free_bytes [1-9]\d*)",
          R"(tarnd_database_pool_used\{pool="read"\} 0)"})
        EXPECT_TRUE(std::regex_search(numbers.body, std::regex("(^|\n)" + std::string(line) + "\n")))
            << line << "\n"
            << numbers.body;
    EXPECT_EQ(send(requestText("GET", "/metrics", "", "", "X-Forwarded-For: 192.0.2.7\r\n")).status, 403);
    EXPECT_EQ(ask(requestText("GET", "/health/live")).body, "alive\n");
    EXPECT_EQ(ask(requestText("GET", "/health/ready")).body, "ready\n");

    if (service.usesObjects()) return;
    std::filesystem::rename(service.dataDir() / "uploads", service.dataDir() / "moved");
    WireReply reply;
    for (int i = 0; i < 100 && reply.status != 503; ++i) { // it looks once a second
        reply = ask(requestText("GET", "/health/ready"));
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    EXPECT_EQ(reply.body, "The data directory cannot be written to: No such file or directory.\n");
    const auto status = service.run({"status"});
    EXPECT_EQ(status.exitCode, 1);
    EXPECT_THAT(status.out, HasSubstr(service.usesPostgres() ? "at its own address"
                                                             : service.url() + "\nThe data directory"));
    EXPECT_EQ(service.terminate(), 0);
    EXPECT_EQ(service.run({"status"}).exitCode, service.usesPostgres() ? 1 : 3);
}

} // namespace
} // namespace tarnd::test
