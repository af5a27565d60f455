// Clients that hold on to the service and never get done: they shut everybody else out, or fill the disk.
#include "tests/tarnd/http/ServiceTest.h"

#include <filesystem>
#include <sys/resource.h>
#include <thread>

namespace tarnd::test {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

std::string uploadHead(const std::string& session, std::size_t length)
{
    return "PUT /service/v1/files/f?createMode=CREATE HTTP/1.1\r\nHost: tarn\r\nx-qz-tarn-session-id: " +
           session + "\r\nContent-Length: " + std::to_string(length) + "\r\n\r\n";
}

bool comesTrue(const std::function<bool()>& condition)
{
    for (const auto deadline = Clock::now() + seconds(15); Clock::now() < deadline;) {
        if (condition()) return true;
        std::this_thread::sleep_for(milliseconds(50));
    }
    return false;
}

class Flood : public ServiceTest {
protected:
    using ServiceTest::ServiceTest;

    std::ptrdiff_t filesBelowUploads()
    {
        std::ptrdiff_t files = 0;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(service.dataDir() / "uploads"))
            files += entry.is_regular_file();
        return files;
    }
};

TEST_F(Flood, OfSlowConnectionsLeavesRoomForOthers)
{
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);

    struct Row {
        std::string from, sent;
    };

    for (const auto& [from, sent] :
         {Row{"127.0.0.1", "GET /service/v1/pi"}, // as many as a proxy in front has
          Row{"127.0.0.1", uploadHead("none", 1000) + "a"},
          Row{"127.0.0.2", uploadHead(alice, 1000) + "a"}}) {
        std::vector<std::unique_ptr<Wire>> slow;
        for (int i = 0; i < 1100; ++i) {
            slow.push_back(std::make_unique<Wire>(service.port(), from));
            slow.back()->send(sent);
        }
        const auto begun = Clock::now();
        for (int i = 0; i < 3; ++i)
            EXPECT_EQ(asAlice("GET", "/service/v1/ping").status, 200) << from << " " << sent;
        EXPECT_LT(Clock::now() - begun, seconds(10));
    }
}

TEST_F(Flood, OfAbortedUploadsLeavesNothing)
{
    put("/first", "content");
    const auto before = filesBelowUploads(); // a lock
    for (int i = 0; i < 200; ++i)
        Wire(service.port()).send(uploadHead(alice, 1000) + "a");
    put("/last", "content");
    EXPECT_TRUE(comesTrue([&] { return filesBelowUploads() == before; })) << filesBelowUploads();
}

class Impatient : public Flood {
protected:
    Impatient() : Flood({"--idle-timeout", "2"}) {}
};

TEST_F(Impatient, ServiceEndsWhatOnlyDrips)
{
    const auto ping = requestText("GET", "/service/v1/ping", alice);
    for (const auto& sent :
         {std::string("GET /"), ping + "GET /", uploadHead("none", 100'000), uploadHead(alice, 100'000)}) {
        Wire wire(service.port());
        ASSERT_TRUE(wire.send(sent));
        EXPECT_TRUE(comesTrue([&] { return !wire.send("x"); })) << sent;
    }
}

/// Ten answers a second, however many connections the guesser has.
TEST_F(Flood, OfWrongTokensIsHeldBack)
{
    const auto login =
        requestText("GET", "/service/v1/login", {}, {}, "x-qz-authentication-token: wrong\r\n");
    std::vector<std::unique_ptr<Wire>> guesses;
    const auto begun = Clock::now();
    for (int i = 0; i < 30; ++i) {
        guesses.push_back(std::make_unique<Wire>(service.port()));
        guesses.back()->send(login);
    }
    std::map<int, int> answers;
    for (auto& guess : guesses)
        ++answers[guess->receive().value().status];
    EXPECT_EQ(answers[401] + answers[403], 30);
    EXPECT_GE(Clock::now() - begun, milliseconds(900) * ((answers[401] + 9) / 10));
    EXPECT_NE(logIn(aliceToken), "");
}

/// Whoever asks too much is told when to come back, and nobody else notices.
TEST(RequestRate, HoldsForEachAddress)
{
    TarndProcess service({"--request-rate", "5"});
    service.start();
    const auto ask = [&](const std::string& target, const std::string& from) {
        Wire wire(service.port(), from);
        wire.send(requestText("GET", target));
        return wire.receive().value_or(WireReply{});
    };
    std::map<int, int> count;
    WireReply last;
    const auto begun = std::chrono::steady_clock::now();
    for (int i = 0; i < 50; ++i)
        ++count[(last = ask("/service/v1/ping", "127.0.0.2")).status];
    const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
    EXPECT_GE(count[401], 5);
    EXPECT_LE(count[401], 6 + 5 * seconds);
    EXPECT_EQ(count[401] + count[429], 50);
    EXPECT_TRUE(last.status != 429 || last.headers["retry-after"] == "1");
    EXPECT_EQ(ask("/service/v1/ping", "127.0.0.3").status, 401);
    EXPECT_EQ(ask("/health/live", "127.0.0.2").status, 200);
    for (int i = 0; i < 100 && last.status == 429; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        last = ask("/service/v1/ping", "127.0.0.2");
    }
    EXPECT_EQ(last.status, 401) << "a second later";
}

} // namespace
} // namespace tarnd::test
