#include "tests/tarnd/store/StoreTest.h"

/// How long somebody is in, and what is kept of secrets and of removed users.
namespace tarnd {

class AccountsTest : public StoreTest {};

TEST_F(AccountsTest, NeitherTokenNorSessionIdIsStored)
{
    if (!place.isSqlite()) GTEST_SKIP() << "reads the database file";
    const auto token = store->accounts().add("carol");
    const auto session = store->sessions().login(token);
    store.reset();
    std::ifstream file(place.folder / "tarn.db", std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(file), {});
    EXPECT_NE(bytes.find("carol"), std::string::npos);
    EXPECT_EQ(bytes.find(token), std::string::npos);
    EXPECT_EQ(bytes.find(session), std::string::npos);
}

TEST_F(AccountsTest, RemovalKeepsDataUnlessForced)
{
    put(bob, at("/kept"), "bob's");
    EXPECT_EQ(refusal([&] { store->accounts().remove("bob", false); }), Kind::conflict);
    EXPECT_EQ(get(bob, at("/kept")), "bob's");
    store->accounts().remove("bob", true);
    EXPECT_EQ(filesIn("contents"), 0U);
    EXPECT_EQ(refusal([&] { get(bob, at("/kept")); }), Kind::loginRequired) << "a request still under way";
    EXPECT_EQ(problems(), "");
}

TEST_F(AccountsTest, SessionsLiveAsLongAsTheyAreUsed)
{
    constexpr std::int64_t minute = 60'000;
    const auto id = store->sessions().login(store->accounts().add("carol"));
    for (int i = 0; i < 5; ++i) {
        now += 30 * minute;
        EXPECT_EQ(store->sessions().touch(id).user, "carol");
    }
    now += 50'000; // used again, although not written down
    store->sessions().touch(id);
    now += 30 * minute;
    EXPECT_EQ(store->sessions().touch(id).user, "carol");
    now += 32 * minute;
    EXPECT_EQ(refusal([&] { store->sessions().touch(id); }), Kind::loginRequired);
    EXPECT_EQ(lastSentence(), "Your session has ended. Log in again.");
}

TEST_F(AccountsTest, ASessionUsedWhileTheClockWasAheadRunsIdleOut)
{
    constexpr std::int64_t minute = 60'000, decade = 10 * 365 * 24 * 60 * minute;
    for (const bool expected : {false, true}) {
        now += decade;
        const auto id = store->sessions().login(store->accounts().add(expected ? "dave" : "carol"));
        const auto use = [&] { expected ? store->sessions().expect(id) : store->sessions().touch(id); };
        use();
        now -= decade;
        use();
        now += 32 * minute;
        EXPECT_EQ(refusal([&] { store->sessions().touch(id); }), Kind::loginRequired) << expected;
    }
}

TEST_F(AccountsTest, AnAddressIsFullOnlyOfSessionsThatAreUsed)
{
    const auto token = store->accounts().add("carol");
    const auto logIn = [&] { store->sessions().login(token, "192.0.2.7"); };
    store->sessions().setLimits({.perAddress = 1});
    logIn();
    EXPECT_EQ(refusal(logIn), Kind::tooMany);
    now += 32 * 60'000;
    logIn();
}

TEST_F(AccountsTest, OneSessionTooManyEndsTheOneThatWasIdleForTheLongest)
{
    const auto token = store->accounts().add("carol");
    const auto oldest = store->sessions().login(token);
    now += 60'000;
    const auto second = store->sessions().login(token);
    now += 60'000;
    store->sessions().touch(oldest);
    for (int i = 0; i < 99; ++i)
        store->sessions().login(token);
    EXPECT_EQ(store->sessions().touch(oldest).user, "carol");
    EXPECT_EQ(refusal([&] { store->sessions().touch(second); }), Kind::loginRequired);
    now -= 60'000; // as when the clock is set
    EXPECT_EQ(store->sessions().touch(store->sessions().login(token)).user, "carol");
}

} // namespace tarnd
