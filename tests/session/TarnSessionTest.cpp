// Login, logout and ping from the call to the wire and back, and what the session keeps of them.
#include "support/WireTest.h"
#include "tarn/session/TarnSessionClientServiceProvider.h"

namespace {

using namespace connector;
using namespace connector::tarn;
using namespace tarntest;

struct Bench {
    std::shared_ptr<FakeTransport> transport = std::make_shared<FakeTransport>();
    std::shared_ptr<TarnSessionClient> client;

    explicit Bench(const std::string& clientString = "app 1.0", const std::string& clientType = "test")
    {
        transport->serve("service",
                         std::make_shared<TarnSessionClientServiceProvider>(nullptr, "http://host"));
        client = std::make_shared<TarnSessionClient>(transport, Address("service"), clientString, clientType,
                                                     "de_DE");
    }

    Future<std::unique_ptr<LoginResponse>> login(const std::string& token = "T&1")
    {
        auto request = std::make_unique<Login>();
        request->user = u"alice";
        request->authenticationToken = token;
        request->clientString = "forged";
        return client->login(std::move(request));
    }
};

const std::string identity = "?locale=en_US&clientString=app%201.0&clientType=test\n";

using Case = WireCase<TarnSessionClient>;

class SessionOnTheWire : public testing::TestWithParam<Case> {};

struct ClientBench : Bench {};

TEST_P(SessionOnTheWire, SendsOneRequestAndReportsHowItEnds)
{
    expectExchange<ClientBench>(GetParam());
}

INSTANTIATE_TEST_SUITE_P(
    , SessionOnTheWire,
    testing::Values(Case{"Login",
                         [](auto& c) {
                             auto login = std::make_unique<Login>();
                             login->authenticationToken = "T&1";
                             return watch(c.login(std::move(login)));
                         },
                         "get http://host/service/v1/login" + identity +
                             "at most once\nx-qz-authentication-token: T&1\n"},
                    Case{"LogoutWithoutARequest", [](auto& c) { return watch(c.logout({})); },
                         "get http://host/service/v1/logout" + identity +
                             "at most once\nx-qz-tarn-session-id: \n"},
                    Case{"PingWithoutARequest", [](auto& c) { return watch(c.ping({})); },
                         "get http://host/service/v1/ping" + identity + "x-qz-tarn-session-id: \n"}),
    caseName<Case>);

TEST(TarnSession, KeepsTheIdOfTheLastLoginThatSucceeded)
{
    Bench bench("", "");
    auto first = bench.login();
    EXPECT_EQ(
        bench.transport->sent(0),
        "get http://host/service/v1/login?locale=en_US\nat most once\nx-qz-authentication-token: T&1\n");
    EXPECT_EQ(bench.client->getUser(), u"alice") << "known before the reply";
    EXPECT_EQ(bench.client->getSessionId(), "");
    bench.transport->answer(
        200, "<R><TarnSessionId>S1</TarnSessionId><MinutesBeforeRelogin>30</MinutesBeforeRelogin></R>", 0);
    auto response = first.get();
    EXPECT_EQ(response->sessionId, "S1");
    EXPECT_EQ(response->minutesBeforeRelogin, 30u);
    EXPECT_EQ(bench.client->getSessionId(), "S1");

    auto refused = bench.login();
    bench.transport->answer(401, "<E><code>No.</code></E>", 1);
    EXPECT_EQ(outcomeOf(refused), "No.");
    EXPECT_EQ(bench.client->getSessionId(), "S1");

    auto logout = bench.client->logout(std::make_unique<Logout>());
    EXPECT_EQ(bench.transport->sent(2),
              "get http://host/service/v1/logout?locale=en_US\nat most once\nx-qz-tarn-session-id: S1\n");
    bench.transport->answer(200, "<R/>", 2);
    EXPECT_EQ(outcomeOf(logout), "done");
    EXPECT_EQ(bench.client->getSessionId(), "S1") << "a logout clears nothing here";
}

TEST(TarnSession, ReadsWhatALoginReplyHolds)
{
    struct Reading {
        std::string reply;
        std::string sessionId;
        std::uint32_t minutes;
    };

    const std::string two = "<R><TarnSessionId>a</TarnSessionId><TarnSessionId>b</TarnSessionId></R>";
    for (const auto& reading :
         std::vector<Reading>{{"<R/>", "", 0},
                              {two, "", 0},
                              {"<R><MinutesBeforeRelogin>4294967297</MinutesBeforeRelogin></R>", "", 1},
                              {"<R><MinutesBeforeRelogin> 15 minutes</MinutesBeforeRelogin></R>", "", 15},
                              {"<R><MinutesBeforeRelogin>1</MinutesBeforeRelogin><MinutesBeforeRelogin>2</"
                               "MinutesBeforeRelogin></R>",
                               "", 0}}) {
        Bench bench;
        auto login = bench.login();
        bench.transport->answer(200, reading.reply);
        auto response = login.get();
        EXPECT_EQ(response->sessionId, reading.sessionId) << reading.reply;
        EXPECT_EQ(response->minutesBeforeRelogin, reading.minutes) << reading.reply;
    }
    for (const char* minutes : {"", "soon", "18446744073709551616"}) {
        Bench bench;
        auto login = bench.login();
        bench.transport->answer(200, std::string("<R><MinutesBeforeRelogin>") + minutes +
                                         "</MinutesBeforeRelogin></R>");
        EXPECT_EQ(outcomeOf(login), "stoul") << minutes;
        EXPECT_EQ(bench.client->getSessionId(), "");
    }
}

TEST(TarnSession, ReadsThePing)
{
    Bench bench;
    auto ping = bench.client->ping(nullptr);
    bench.transport->answer(200, "<R><Value>pöng</Value></R>");
    EXPECT_EQ(ping.get()->value, "pöng");
}

TEST(TarnSession, DerivesTheMountPointFromTheUser)
{
    Bench bench;
    auto& session = *bench.client;
    EXPECT_EQ(session.getMountPoint(), u"/users/");
    session.setUser(u"alice");
    EXPECT_EQ(session.getMountPoint(), u"/users/alice");
    session.setMountPoint(u"/projects//");
    EXPECT_EQ(session.getMountPoint(), u"/projects/") << "one slash is dropped, not two";
    session.setMountPoint(u"/");
    EXPECT_EQ(session.getMountPoint(), u"/users/alice");
    EXPECT_EQ(session.getLocale(), "de_DE");
    EXPECT_EQ(session.getPtr(), bench.client);
}

} // namespace
