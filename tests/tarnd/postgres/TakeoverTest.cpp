// The database moves to its standby while several processes are used: they go on by themselves, and what was
// acknowledged before is there.
#include "tests/tarnd/access/ServiceUser.h"
#include "tests/tarnd/postgres/ChangingClients.h"
#include "tests/tarnd/postgres/StandbyPair.h"

#include <functional>
#include <future>
#include <gtest/gtest.h>
#include <optional>

namespace tarnd::test {
namespace {

class Standby : public ::testing::Test {
protected:
    void SetUp() override
    {
        if (!std::getenv("TARN_TEST_SERVERS"))
            GTEST_SKIP() << "wants PostgreSQL: run it under scripts/with-postgres";
        servers.emplace();
    }

    std::optional<StandbyPair> servers;
};

/// An operator who sees commits wait for a standby that is away may cancel them.
TEST_F(Standby, NoChangeIsAcknowledgedThatItMayNotHave)
{
    const auto service = TarndProcess::over(servers->url());
    service->start();
    ServiceUser user(service->url());
    user.login(service->addUser("alice"));
    servers->standby.end();
    auto change = std::async(std::launch::async, [&] { return user.put({"", "/f"}, "content"); });
    const std::string waiting = " FROM pg_stat_activity WHERE wait_event = 'SyncRep'";
    waitUntil([&] { return servers->primary.ask("SELECT COUNT(*)" + waiting) == "1"; });
    servers->primary.ask("SELECT pg_cancel_backend(pid)" + waiting);
    EXPECT_EQ(outcomeOf(change.get()),
              "500 The change may have happened or not: the database did not confirm it. Look before you try "
              "again.");
}

struct Way {
    const char* name;
    std::function<void(StandbyPair::Server&)> end;
};

class Takeover : public Standby, public ::testing::WithParamInterface<Way> {};

/// TARN_TEST_CHANGES=10000 for the long form.
TEST_P(Takeover, LosesNoAcknowledgedChange)
{
    const char* given = std::getenv("TARN_TEST_CHANGES");
    const auto half = (given ? std::strtoul(given, nullptr, 10) : 300) / 2;
    ChangingClients all(servers->url(), objectsOf("takeover-" + randomHex(8)));
    all.acknowledge(half);
    GetParam().end(servers->primary);
    servers->standby.ask("SELECT pg_promote()");
    all.acknowledge(half);
    servers->primary.end();
    all.endAndCheck();
}

INSTANTIATE_TEST_SUITE_P(
    , Takeover,
    ::testing::Values(Way{"Killed", [](auto& primary) { primary.end(); }},
                      Way{"Silent", [](auto& primary) { primary.signal(SIGSTOP); }},
                      Way{"ReadOnly",
                          [](auto& primary) {
                              primary.ask("ALTER SYSTEM SET default_transaction_read_only = on");
                              primary.ask("SELECT pg_reload_conf()");
                              waitUntil([&] {
                                  return primary.ask("SELECT COUNT(backend_xid) FROM pg_stat_activity") ==
                                         "0";
                              });
                          }}),
    [](const auto& way) { return way.param.name; });

} // namespace
} // namespace tarnd::test
