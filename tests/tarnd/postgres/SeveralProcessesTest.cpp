// Several tarnd over one database: what becomes of the others, and of their clients, when one of them, or the
// network to the database, stops without a word.
#include "tests/support/TarndProcess.h"
#include "tests/tarnd/access/ServiceUser.h"
#include "tests/tarnd/postgres/OwnDatabase.h"
#include "tests/tarnd/postgres/SilentProxy.h"

#include <csignal>
#include <filesystem>
#include <future>
#include <gmock/gmock.h>

namespace tarnd::test {
namespace {

using ::testing::AnyOf;
using ::testing::Each;
using ::testing::HasSubstr;

const std::string databaseGone =
    "503 The service cannot reach its database and has changed nothing. Try again.";
const std::string busy = "503 The service is busy and has changed nothing. Try again.";
const std::string commitUnknown =
    "500 The change may have happened or not: the database did not confirm it. Look before you try again.";
constexpr int several = 8; // more than a small pool has threads

class SeveralProcesses : public OwnDatabase {
protected:
    void start(const std::string& options = {}, int port = 0)
    {
        first = TarndProcess::over(url(options));
        first->start();
        token = first->addUser("alice");
        second = TarndProcess::over(url(options, port), first->dataDir());
        second->start();
    }

    ServiceUser alice(const TarndProcess& service)
    {
        ServiceUser user(service.url());
        if (session.empty()) {
            user.login(token);
            session = user.session();
        }
        user.useSession(session);
        return user;
    }

    using Outcome = std::future<std::string>;

    Outcome put(const TarndProcess& service, const std::string& path)
    {
        return std::async(std::launch::async, [user = alice(service), path]() mutable {
            return outcomeOf(user.put({"", path}, "content"));
        });
    }

    std::vector<Outcome> putSeveral(const TarndProcess& service)
    {
        std::vector<Outcome> all;
        for (int i = 0; i < several; ++i)
            all.push_back(put(service, "/waiting" + std::to_string(i)));
        return all;
    }

    static std::vector<std::string> outcomes(std::vector<Outcome>& all)
    {
        std::vector<std::string> texts;
        for (auto& each : all)
            texts.push_back(each.get());
        return texts;
    }

    static bool noneIsAnswered(std::vector<Outcome>& all)
    {
        return std::none_of(all.begin(), all.end(), [](auto& each) {
            return each.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
        });
    }

    /// A trigger holds every insertion of a version up until letGo(). @param when "IMMEDIATE", or "DEFERRED" to
    /// the commit
    void hold(const std::string& when)
    {
        ask("CREATE FUNCTION hold() RETURNS trigger AS 'BEGIN PERFORM pg_advisory_xact_lock_shared(7); "
            "RETURN "
            "NULL; END' LANGUAGE plpgsql; CREATE CONSTRAINT TRIGGER held AFTER INSERT ON versions DEFERRABLE "
            "INITIALLY " +
            when + " FOR EACH ROW EXECUTE FUNCTION hold()");
        holder = std::async(std::launch::async, [this] {
            ask("SET application_name = 'holder'; SELECT pg_advisory_lock(7), pg_sleep(60)");
        });
        waitUntil([&] { return ask(locks + "objid = 7 AND granted") == "1"; });
    }

    void waitUntilHeldUp()
    {
        waitUntil([&] { return ask(locks + "objid = 7 AND NOT granted") == "1"; });
    }

    void letGo()
    {
        ask("SELECT pg_cancel_backend(pid) FROM pg_stat_activity WHERE application_name = 'holder'");
        EXPECT_THROW(holder.get(), std::runtime_error);
    }

    /// Stops the first process while it holds the write lock; its client waits in the result.
    Outcome stopInsideAWrite()
    {
        hold("IMMEDIATE");
        auto outcome = put(*first, "/stopped");
        waitUntilHeldUp();
        first->signal(SIGSTOP);
        letGo();
        return outcome;
    }

    const std::string locks =
        "SELECT COUNT(*) FROM pg_locks WHERE database = (SELECT oid FROM pg_database WHERE "
        "datname = current_database()) AND ";
    std::future<void> holder;
    std::unique_ptr<TarndProcess> first, second;
    std::string token, session;
};

TEST_F(SeveralProcesses, OneThatStopsInsideAWriteStopsNoOther)
{
    start();
    auto stopped = stopInsideAWrite();
    auto waiting = putSeveral(*second);
    for (int i = 0; i < several; ++i)
        EXPECT_EQ(outcomeOf(alice(*second).ping()), "200");
    EXPECT_TRUE(noneIsAnswered(waiting)) << "the pings came too late to tell";
    EXPECT_THAT(outcomes(waiting), Each("200"));

    first->signal(SIGCONT);
    EXPECT_THAT(stopped.get(), AnyOf(databaseGone, commitUnknown));
    EXPECT_EQ(put(*first, "/again").get(), "200");
    EXPECT_EQ(second->terminate() + first->terminate(), 0);
    EXPECT_EQ(first->run({"fsck"}).exitCode, 0);
}

TEST_F(SeveralProcesses, OneThatWaitsForTheLockGivesUpAndEndsWhenItIsTold)
{
    ask("ALTER DATABASE " + name + " SET idle_in_transaction_session_timeout = '1h'");
    start("options=-clock_timeout%3D5s");
    auto stopped = stopInsideAWrite();
    EXPECT_EQ(put(*second, "/refused").get(), busy);
    auto waiting = put(*second, "/waiting");
    waitUntil([&] { return ask(locks + "NOT granted") == "1"; });
    EXPECT_EQ(second->terminate(), 0);
    EXPECT_THAT(waiting.get(), AnyOf(busy, databaseGone));
    first->signal(SIGCONT);
    EXPECT_EQ(stopped.get(), "200");
}

TEST_F(SeveralProcesses, ASilentNetworkFailsWhatNeedsItAndNothingElse)
{
    SilentProxy proxy(serverPort());
    start({}, proxy.port());
    ASSERT_EQ(put(*second, "/before").get(), "200");
    for (int round = 0; round < 2; ++round) { // over connections that were there, over new ones
        proxy.setSilent(true);
        auto waiting = putSeveral(*second);
        EXPECT_THAT(outcomeOf(alice(*second).send("GET", "/nowhere")), HasSubstr("400"));
        EXPECT_TRUE(noneIsAnswered(waiting));
        EXPECT_THAT(outcomes(waiting), Each(AnyOf(databaseGone, busy)));
        EXPECT_EQ(put(*first, "/other" + std::to_string(round)).get(), "200");
    }
    proxy.setSilent(false);
    EXPECT_EQ(put(*second, "/after").get(), "200");
    proxy.setSilent(true);
    auto waiting = putSeveral(*second);
    EXPECT_EQ(second->terminate(), 0);
    EXPECT_EQ(first->errors(), "");
    waiting.clear();
}

TEST_F(SeveralProcesses, AnUnconfirmedCommitIsToldAsSuchAndTheFileIsThere)
{
    SilentProxy proxy(serverPort());
    start("options=-clock_timeout%3D1min", proxy.port());
    hold("DEFERRED");
    auto outcome = put(*second, "/f");
    waitUntilHeldUp();
    proxy.setSilent(true);
    EXPECT_EQ(outcome.get(), commitUnknown);
    letGo();
    EXPECT_EQ(alice(*first).read({"", "/f"}).body, "content");
}

TEST_F(SeveralProcesses, TheCommitOfADeadOneIsAwaitedByTheNextToStart)
{
    start("options=-clock_timeout%3D1min");
    hold("DEFERRED");
    auto outcome = put(*second, "/f");
    waitUntilHeldUp();
    second->kill();
    EXPECT_THROW(outcome.get(), std::runtime_error);
    const auto third = TarndProcess::over(url(), first->dataDir());
    auto released = std::async(std::launch::async, [&] {
        waitUntil([&] { return ask(locks + "NOT granted") == "2"; });
        letGo();
    });
    third->start();
    released.get();
    EXPECT_EQ(alice(*third).read({"", "/f"}).body, "content");
}

} // namespace
} // namespace tarnd::test
