// Several tarnd over one database: what becomes of the others, and of their clients, when one of them, or the
// network to the database, stops without a word.
#include "tests/support/SilentProxy.h"
#include "tests/tarnd/access/ServiceUser.h"
#include "tests/tarnd/postgres/OwnDatabase.h"

#include <functional>
#include <future>
#include <gmock/gmock.h>

namespace tarnd::test {
namespace {

using ::testing::AnyOf;
using ::testing::Each;

const std::string databaseGone =
    "503 The service cannot reach its database and has changed nothing. Try again.";
const std::string busy = "503 The service is busy and has changed nothing. Try again.";
const std::string commitUnknown =
    "500 The change may have happened or not: the database did not confirm it. Look before you try again.";

/// Requests under way.
struct Outcomes {
    bool pending() const
    {
        return std::none_of(all.begin(), all.end(), [](auto& each) {
            return each.wait_for(std::chrono::seconds(0)) == std::future_status::ready;
        });
    }

    std::vector<std::string> get()
    {
        std::vector<std::string> texts;
        for (auto& each : all)
            texts.push_back(each.get());
        return texts;
    }

    std::vector<std::future<std::string>> all;
};

class SeveralProcesses : public OwnDatabase {
protected:
    void start(const std::string& options = {}, const std::string& throughPort = {})
    {
        first = TarndProcess::over(url(options));
        first->start();
        auto through = url(options);
        const auto colon = through.rfind(':') + 1;
        if (!throughPort.empty()) through.replace(colon, through.find('/', colon) - colon, throughPort);
        second = TarndProcess::over(through, first->dataDir());
        second->start();
        ServiceUser user(first->url());
        user.login(first->addUser("alice"));
        session = user.session();
    }

    ServiceUser alice(const TarndProcess& service) const
    {
        ServiceUser user(service.url());
        user.useSession(session);
        return user;
    }

    /// Puts "/f0", "/f1", … at once.
    Outcomes put(const TarndProcess& service, int count = 1) const
    {
        Outcomes outcomes;
        for (int i = 0; i < count; ++i)
            outcomes.all.push_back(std::async(std::launch::async, [user = alice(service), i]() mutable {
                return outcomeOf(
                    user.put({"", "/f" + std::to_string(i)}, "content", "CREATE_OR_UPDATE", false));
            }));
        return outcomes;
    }

    /// @param check throws when it is in vain to wait on
    void waitForLocks(
        const std::string& count, const std::string& which, const std::function<void()>& check = [] {})
    {
        waitUntil([&] {
            check();
            return ask("SELECT COUNT(*) FROM pg_locks JOIN pg_database d ON d.oid = database WHERE datname = "
                       "current_database() AND " +
                       which) == count;
        });
    }

    /// Starts a put and holds it up, until letGo(), at the row of its version ("IMMEDIATE") or the commit ("DEFERRED").
    Outcomes heldUp(const TarndProcess& service, const std::string& when)
    {
        ask("CREATE FUNCTION hold() RETURNS trigger AS 'BEGIN PERFORM pg_advisory_xact_lock_shared(7); "
            "RETURN "
            "NULL; END' LANGUAGE plpgsql; CREATE CONSTRAINT TRIGGER held AFTER INSERT OR UPDATE ON versions "
            "DEFERRABLE "
            "INITIALLY " +
            when + " FOR EACH ROW EXECUTE FUNCTION hold()");
        holder = std::async(std::launch::async, [this]() -> std::string {
            try {
                return ask("SET application_name = 'holder'; SELECT pg_advisory_lock(7), pg_sleep(60)");
            } catch (const std::exception& e) {
                return e.what();
            }
        });
        waitForLocks("1", "objid = 7 AND granted", [this] {
            if (holder.wait_for(std::chrono::seconds(0)) == std::future_status::ready)
                throw std::runtime_error("nothing is held up: " + holder.get());
        });
        auto outcome = put(service);
        waitForLocks("1", "objid = 7 AND NOT granted", [&] {
            if (!outcome.pending()) throw std::runtime_error("was not held up: " + outcome.get().front());
        });
        return outcome;
    }

    void letGo()
    {
        ask("SELECT pg_cancel_backend(pid) FROM pg_stat_activity WHERE application_name = 'holder'");
        holder.get();
    }

    /// Stops the first process while it holds the write lock; its client waits in the result. The insertion of a new
    /// file goes to the server together with the commit, the replacement of one does not.
    Outcomes stopInsideAWrite()
    {
        EXPECT_THAT(put(*first).get(), Each("200"));
        auto outcome = heldUp(*first, "IMMEDIATE");
        first->pause();
        letGo();
        return outcome;
    }

    std::unique_ptr<TarndProcess> first, second;
    std::string session;
    std::future<std::string> holder;
};

TEST_F(SeveralProcesses, OneThatStopsInsideAWriteStopsNoOther)
{
    start();
    auto stopped = stopInsideAWrite();
    auto waiting = put(*second, 8);
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(outcomeOf(alice(*second).ping()), "200");
    EXPECT_TRUE(waiting.pending()) << "the pings came too late to tell";
    EXPECT_THAT(waiting.get(), Each("200"));

    first->resume();
    EXPECT_THAT(stopped.get(), Each(AnyOf(databaseGone, commitUnknown)));
    EXPECT_THAT(put(*first).get(), Each("200"));
}

TEST_F(SeveralProcesses, OneThatWaitsForTheLockGivesUpAndEndsWhenItIsTold)
{
    ask("ALTER DATABASE " + name + " SET idle_in_transaction_session_timeout = '1h'");
    start("options=-clock_timeout%3D5s");
    auto stopped = stopInsideAWrite();
    EXPECT_THAT(put(*second).get(), Each(busy));
    auto waiting = put(*second);
    waitForLocks("1", "NOT granted");
    EXPECT_EQ(second->terminate(), 0);
    EXPECT_THAT(waiting.get(), Each(AnyOf(busy, databaseGone)));
    first->resume();
    EXPECT_THAT(stopped.get(), Each("200"));
}

TEST_F(SeveralProcesses, ASilentNetworkFailsWhatNeedsItAndNothingElse)
{
    SilentProxy proxy(std::stoi(server.substr(server.rfind(':') + 1)));
    start("options=-clock_timeout%3D1min", proxy.port());
    auto unconfirmed = heldUp(*second, "DEFERRED");
    proxy.setSilent(true);
    auto waiting = put(*second, 8);
    EXPECT_EQ(alice(*second).send("GET", "/nowhere").status, 400);
    EXPECT_TRUE(waiting.pending());
    EXPECT_THAT(waiting.get(), Each(AnyOf(databaseGone, busy)));
    EXPECT_THAT(unconfirmed.get(), Each(commitUnknown));
    letGo(); // only now the server comes to its end
    waitUntil([&] { return alice(*first).read({"", "/f0"}).body == "content"; });
    EXPECT_THAT(put(*first).get(), Each("200"));
    proxy.setSilent(false);
    EXPECT_THAT(put(*second).get(), Each("200"));
}

TEST_F(SeveralProcesses, TheCommitOfADeadOneIsAwaitedByTheNextToStart)
{
    start("options=-clock_timeout%3D1min");
    auto outcome = heldUp(*second, "DEFERRED");
    second->kill();
    EXPECT_THROW(outcome.get(), std::runtime_error);
    auto released = std::async(std::launch::async, [&] {
        waitForLocks("2", "NOT granted");
        letGo();
    });
    second->start();
    released.get();
    EXPECT_EQ(alice(*second).read({"", "/f0"}).body, "content");
}

} // namespace
} // namespace tarnd::test
