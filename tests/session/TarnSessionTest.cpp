// Login, logout and ping from the call to the wire and back, and what the session keeps of them.
#include "support/WireTest.h"
#include "tarn/session/TarnSessionClientServiceProvider.h"

namespace connector::tarn {

std::string show(const LoginResponse& login)
{
    return tarntest::fields(login.sessionId, login.minutesBeforeRelogin);
}

std::string show(const PingResponse& ping)
{
    return ping.value;
}

namespace {

using namespace tarntest;
using Case = WireCase<TarnSessionClient>;

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
};

Outcome login(TarnSessionClient& client)
{
    auto request = std::make_unique<Login>();
    request->user = u"alice";
    request->authenticationToken = "T&1";
    request->clientString = "forged";
    return watch(client.login(std::move(request)));
}

const std::string identity = "?locale=en_US&clientString=app%201.0&clientType=test\n";
const std::string once = "at most once\n";

TEST(TarnSession, SendsEachRequestAndReadsItsReply)
{
    expectExchanges<Bench>(std::vector<Case>{
        {"login", login,
         "get http://host/service/v1/login" + identity + once + "x-qz-authentication-token: T&1\n",
         "<R><TarnSessionId>S1</TarnSessionId><MinutesBeforeRelogin>30</MinutesBeforeRelogin></R>", "S1|30"},
        {"logout without a request", [](auto& c) { return watch(c.logout({})); },
         "get http://host/service/v1/logout" + identity + once + "x-qz-tarn-session-id: \n"},
        {"ping without a request", [](auto& c) { return watch(c.ping({})); },
         "get http://host/service/v1/ping" + identity + "x-qz-tarn-session-id: \n",
         "<R><Value>pöng</Value></R>", "pöng"},
    });
}

TEST(TarnSession, KeepsTheIdOfTheLastLoginThatSucceeded)
{
    Bench bench("", "");
    auto first = login(*bench.client);
    EXPECT_EQ(
        bench.transport->sent(0),
        "get http://host/service/v1/login?locale=en_US\nat most once\nx-qz-authentication-token: T&1\n");
    EXPECT_EQ(bench.client->getUser(), u"alice") << "known before the reply";
    EXPECT_EQ(bench.client->getSessionId(), "");
    bench.transport->answer(200, "<R><TarnSessionId>S1</TarnSessionId></R>", 0);
    EXPECT_EQ(first(), "S1|0");
    EXPECT_EQ(bench.client->getSessionId(), "S1");

    auto refused = login(*bench.client);
    bench.transport->answer(401, "<E><code>No.</code></E>", 1);
    EXPECT_EQ(refused(), "No.");
    EXPECT_EQ(bench.client->getSessionId(), "S1");

    auto logout = watch(bench.client->logout(std::make_unique<Logout>()));
    EXPECT_EQ(bench.transport->sent(2),
              "get http://host/service/v1/logout?locale=en_US\nat most once\nx-qz-tarn-session-id: S1\n");
    bench.transport->answer(200, "<R/>", 2);
    EXPECT_EQ(logout(), "done");
    EXPECT_EQ(bench.client->getSessionId(), "S1") << "a logout clears nothing here";
}

TEST(TarnSession, ReadsWhatALoginReplyHolds)
{
    auto minutes = [](const std::string& text) {
        return "<R><MinutesBeforeRelogin>" + text + "</MinutesBeforeRelogin></R>";
    };
    const std::string two = "<R><TarnSessionId>a</TarnSessionId><TarnSessionId>b</TarnSessionId></R>";
    expectReadings<Bench>(std::vector<Reading<TarnSessionClient>>{
        {login, "<R/>", "|0"},
        {login, two, "|0"},
        {login, minutes("4294967297"), "|1"},
        {login, minutes(" 15 minutes"), "|15"},
        {login, "<R>" + minutes("1") + minutes("2") + "</R>", "|0"},
        {login, minutes(""), "stoul"},
        {login, minutes("soon"), "stoul"},
        {login, minutes("18446744073709551616"), "stoul"},
    });
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
} // namespace connector::tarn
