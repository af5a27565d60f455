// Clients that hold on to the service and never get done: they shut everybody else out, or fill the disk.
#include "tarnd/http/ClientAddress.h"
#include "tests/tarnd/http/ServiceTest.h"

#include <cstring>
#include <filesystem>
#include <netdb.h>
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

/// Also when nobody was connected at that moment, so that nothing else made the service look again.
TEST_F(Flood, IsOverOnceThereAreDescriptorsAgain)
{
    std::this_thread::sleep_for(milliseconds(400)); // until the connections before have gone
    rlimit usual{};
    ASSERT_EQ(prlimit(service.processId(), RLIMIT_NOFILE, nullptr, &usual), 0);
    const rlimit few{3, usual.rlim_max};
    ASSERT_EQ(prlimit(service.processId(), RLIMIT_NOFILE, &few, nullptr), 0);
    Wire waiting(service.port());
    waiting.send(requestText("GET", "/service/v1/ping", alice));
    std::this_thread::sleep_for(milliseconds(100));
    ASSERT_EQ(prlimit(service.processId(), RLIMIT_NOFILE, &usual, nullptr), 0);
    const auto reply = waiting.receive();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->status, 200);
}

TEST_F(Flood, OfAbortedUploadsLeavesNothing)
{
    if (service.usesObjects()) GTEST_SKIP() << "looks into the folder of uploads";
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

/// Whoever asks too much is told when to come back, and nobody else notices: by address, and by user.
TEST(RequestRate, HoldsForEachAddressAndForEachUser)
{
    for (const auto* const limit : {"--request-rate", "--user-request-rate"}) {
        SCOPED_TRACE(limit);
        TarndProcess service({limit, "5"});
        service.start();
        const auto sessionOf = [&](const std::string& name) {
            ServiceUser user(service.url());
            user.login(service.addUser(name));
            return user.session();
        };
        const auto alice = sessionOf("alice"), bob = sessionOf("bob");
        const auto ask = [&](const std::string& target, const std::string& from, const std::string& session) {
            Wire wire(service.port(), from);
            wire.send(requestText("GET", target, session));
            return wire.receive().value_or(WireReply{});
        };
        const bool ofAddress = limit == std::string("--request-rate");
        constexpr int clients = 64;
        std::atomic<int> granted = 0, refused = 0, told = 0;
        const auto begun = std::chrono::steady_clock::now();
        {
            std::vector<std::jthread> threads;
            for (int i = 0; i < clients; ++i)
                threads.emplace_back([&] {
                    auto reply = ask("/service/v1/ping", "127.0.0.2", alice);
                    granted += reply.status == 200;
                    refused += reply.status == 429;
                    told += reply.headers["retry-after"] == "1";
                });
            for (int i = 0; i < 3; ++i)
                EXPECT_EQ(ask("/service/v1/ping", ofAddress ? "127.0.0.3" : "127.0.0.2", bob).status, 200);
        }
        const auto seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
        EXPECT_GE(granted, 5);
        EXPECT_LE(granted, 6 + 5 * seconds);
        EXPECT_EQ(granted + refused, clients);
        EXPECT_EQ(told, refused);
        WireReply last;
        last.status = 429;
        EXPECT_EQ(ask("/health/live", "127.0.0.2", "").status, 200);
        for (int i = 0; i < 600 && last.status == 429; ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            last = ask("/service/v1/ping", "127.0.0.2", alice);
        }
        EXPECT_EQ(last.status, 200) << "a second later";
    }
}

/// However many addresses of its network a client uses, and on whichever kind of socket it is met.
TEST(ClientAddress, IsKeptAsOneText)
{
    const std::pair<const char*, const char*> rows[] = {
        {"192.0.2.7", "192.0.2.7"},
        {"::ffff:192.0.2.7", "192.0.2.7"},
        {"2001:db8:1:2:3:4:5:6", "2001:db8:1:2::/64"},
        {"::1", "::/64"},
    };
    for (const auto& [from, kept] : rows) {
        addrinfo* found = nullptr;
        ASSERT_EQ(getaddrinfo(from, nullptr, nullptr, &found), 0);
        Client client;
        std::memcpy(&client.endpoint, found->ai_addr, found->ai_addrlen);
        freeaddrinfo(found);
        EXPECT_EQ(client.addressText(), kept);
    }
}

class FewAtATime : public Flood {
protected:
    FewAtATime()
        : Flood({"--user-transfers", "2", "--address-transfers", "3", "--user-sessions", "2",
                 "--address-sessions", "4"})
    {
    }

    bool lives(const std::string& session)
    {
        return send(requestText("GET", "/service/v1/ping", session)).status == 200;
    }

    WireReply logInFrom(const std::string& address, const std::string& token)
    {
        Wire wire(service.port(), address);
        wire.send(
            requestText("GET", "/service/v1/login", {}, {}, "x-qz-authentication-token: " + token + "\r\n"));
        return wire.receive().value_or(WireReply{});
    }
};

TEST_F(FewAtATime, TransfersOfAUserAndOfAnAddress)
{
    put("/r", "content");
    const auto link = linkTo("/");
    const auto begin = [&](const std::string& session, const std::string& from) {
        auto wire = std::make_unique<Wire>(service.port(), from);
        wire->send(uploadHead(session, 1000) + "a");
        return wire;
    };
    const auto underWay = [&](int number) {
        const auto line = "tarnd_transfers{direction=\"in\"} " + std::to_string(number) + "\n";
        return comesTrue(
            [&] { return send(requestText("GET", "/metrics")).body.find(line) != std::string::npos; });
    };
    const auto read = [&](const std::string& session, const std::string& from) {
        Wire wire(service.port(), from);
        wire.send(requestText("GET", "/service/v1/files/r", session));
        return wire.receive().value_or(WireReply{}).status;
    };
    std::vector<std::unique_ptr<Wire>> slow;
    slow.push_back(begin(alice, "127.0.0.2"));
    slow.push_back(begin(alice, "127.0.0.3"));
    ASSERT_TRUE(underWay(2));
    EXPECT_EQ(read(alice, "127.0.0.4"), 429) << "the user's third";
    slow.push_back(begin(bob, "127.0.0.3"));
    slow.push_back(begin(bob, "127.0.0.3"));
    ASSERT_TRUE(underWay(4));
    EXPECT_EQ(asAlice("GET", "/service/v1/ping").status, 200);
    slow.clear(); // alice's and bob's hang up
    ASSERT_TRUE(underWay(0));
    EXPECT_EQ(read(alice, "127.0.0.4"), 200);

    for (const auto& session : {alice, bob, logIn(service.addUser("carol"))})
        slow.push_back(begin(session, "127.0.0.5"));
    ASSERT_TRUE(underWay(3));
    EXPECT_EQ(read(alice, "127.0.0.5"), 429) << "the address's fourth";
    Wire person(service.port(), "127.0.0.5");
    person.send(requestText("GET", link + "?download"));
    const auto page = person.receive().value_or(WireReply{});
    EXPECT_EQ(page.status, 429) << "as an archive does";
    EXPECT_EQ(page.headers.at("retry-after"), "1");
    EXPECT_EQ(page.headers.at("content-type"), "text/html; charset=utf-8");
    EXPECT_EQ(read(alice, "127.0.0.6"), 200);
}

TEST_F(FewAtATime, SessionsOfAUserAndOfAnAddress)
{
    const auto carol = service.addUser("carol"), dave = service.addUser("dave");
    const auto first = logIn(carol), second = logIn(carol); // with alice's and bob's as many as there may be
    const auto third = logIn(carol);
    EXPECT_EQ(lives(first) + lives(second), 1) << "one has made room for the third";

    std::vector<std::string> daves;
    for (int i = 0; i < 2; ++i)
        daves.push_back(parseXml(logInFrom("127.0.0.2", dave).body).only("TarnSessionId"));
    const auto refused = logInFrom("127.0.0.1", dave);
    EXPECT_EQ(outcomeOf(refused), "429 Your address has all the sessions it may have (4). "
                                  "Log out of one, or try again when one has ended.");
    EXPECT_EQ(refused.headers.at("retry-after"), "1");
    for (const auto& session : {alice, bob, third, daves[0], daves[1]})
        EXPECT_TRUE(lives(session)) << "what is refused ends nothing";
    send(requestText("GET", "/service/v1/logout", third));
    EXPECT_EQ(logInFrom("127.0.0.1", dave).status, 200);
}

} // namespace
} // namespace tarnd::test
