// Requests for the same thing at the same time, through different servers where there are two: as many win as
// may win, and the loser is told.
#include "tests/tarnd/access/ServiceUser.h"
#include "tests/tarnd/model/Servers.h"

#include <algorithm>
#include <barrier>
#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

namespace tarnd::test {
namespace {

using ::testing::AnyOf;
using ::testing::Each;
using ::testing::Eq;

constexpr std::size_t racers = 6;
constexpr int rounds = 8;

class Racing : public ::testing::Test {
protected:
    Racing()
    {
        const auto token = servers.first().addUser("alice");
        servers.first().addUser("bob");
        ServiceUser login(servers.urls().front());
        login.login(token);
        for (std::size_t i = 0; i < racers; ++i)
            users.emplace_back(servers.urls()[i % servers.urls().size()]).useSession(login.session());
    }

    void TearDown() override { EXPECT_EQ(servers.endAndCheck(), ""); }

    /// All do the same at once; their outcomes, racer by racer.
    std::vector<std::string> race(const std::function<RestReply(ServiceUser&, std::size_t)>& attempt)
    {
        std::vector<std::string> outcomes(racers);
        std::barrier start(static_cast<std::ptrdiff_t>(racers));
        std::vector<std::thread> threads;
        for (std::size_t i = 0; i < racers; ++i)
            threads.emplace_back([&, i] {
                start.arrive_and_wait();
                try {
                    outcomes[i] = outcomeOf(attempt(users[i], i));
                } catch (const std::exception& e) {
                    outcomes[i] = e.what();
                }
            });
        for (auto& thread : threads)
            thread.join();
        return outcomes;
    }

    /// The one who won; all others must have got `lost`.
    std::size_t onlyWinner(const std::vector<std::string>& outcomes, const std::string& lost)
    {
        EXPECT_EQ(std::count(outcomes.begin(), outcomes.end(), "200"), 1);
        EXPECT_THAT(outcomes, Each(AnyOf(Eq("200"), Eq(lost))));
        return static_cast<std::size_t>(std::find(outcomes.begin(), outcomes.end(), "200") -
                                        outcomes.begin());
    }

    ServiceUser& user() { return users.front(); }

    Servers servers;
    std::vector<ServiceUser> users;
};

TEST_F(Racing, OneCreatesTheNameOneDeletesItOneMovesIt)
{
    for (int round = 0; round < rounds; ++round) {
        const Place file{"", "/file" + std::to_string(round)};
        const Place folder{"", "/folder" + std::to_string(round)};
        const auto creator = onlyWinner(
            race([&](auto& each, auto i) { return each.put(file, "content " + std::to_string(i)); }),
            "409 The file already exists.");
        EXPECT_EQ(user().read(file).body, "content " + std::to_string(creator));
        onlyWinner(race([&](auto& each, auto) { return each.createFolder(folder); }),
                   "409 The folder already exists.");

        const auto target = [&](std::size_t i) { return Place{"", folder.path + "/" + std::to_string(i)}; };
        const auto mover =
            onlyWinner(race([&](auto& each, auto i) { return each.move(file, target(i), false); }),
                       "404 The path does not exist.");
        EXPECT_EQ(user().read(target(mover)).body, "content " + std::to_string(creator));
        onlyWinner(race([&](auto& each, auto) { return each.deleteFile(target(mover)); }),
                   "404 The path does not exist.");
        EXPECT_THAT(parseXml(user().list(folder).body).child("Files").children, ::testing::IsEmpty());
    }
}

/// Two folders moved into each other at once would leave both unreachable, which the check at the end tells.
TEST_F(Racing, FoldersNeverMoveIntoEachOther)
{
    for (int round = 0; round < rounds; ++round) {
        const auto base = "/round" + std::to_string(round);
        const auto folder = [&](std::size_t i) { return base + "/" + std::to_string(i % racers); };
        user().createFolder({"", base});
        for (std::size_t i = 0; i < racers; ++i)
            user().createFolder({"", folder(i)});
        race([&](auto& each, auto i) {
            return each.move({"", folder(i)}, {"", folder(i + 1) + "/inside"}, false);
        });
    }
}

TEST_F(Racing, EveryVersionGetsALabelOfItsOwnAndEveryGrantTheSameId)
{
    const Place file{"", "/file"};
    user().put(file, "first");
    std::vector<std::string> labels(racers), grants(racers);
    for (int round = 0; round < rounds; ++round) {
        EXPECT_THAT(race([&](auto& each, auto i) {
                        auto reply = each.put(file, "next", "UPDATE", true);
                        if (reply.status == 200) labels[i] = parseXml(reply.body).only("VersionLabel");
                        return reply;
                    }),
                    Each("200"));
        std::vector<std::string> expected;
        for (std::size_t i = 0; i < racers; ++i)
            expected.push_back(std::to_string(static_cast<std::size_t>(round) * racers + i + 2));
        EXPECT_THAT(labels, ::testing::UnorderedElementsAreArray(expected));
    }
    EXPECT_THAT(race([&](auto& each, auto i) {
                    auto reply = each.grant(file, "bob");
                    if (reply.status == 200) grants[i] = parseXml(reply.body).only("PermissionId");
                    return reply;
                }),
                Each("200"));
    EXPECT_THAT(grants, Each(grants.front()));
}

/// An upload into a folder that goes at the same time: stored first and gone with it, or refused.
TEST_F(Racing, NothingIsStoredInAFolderThatIsGone)
{
    for (int round = 0; round < rounds; ++round) {
        const Place folder{"", "/folder" + std::to_string(round)};
        user().createFolder(folder);
        const auto outcomes = race([&](auto& each, auto i) {
            return i == 0 ? each.deleteFolder(folder, true)
                          : each.put({"", folder.path + "/" + std::to_string(i)}, "content");
        });
        EXPECT_EQ(outcomes.front(), "200");
        EXPECT_THAT(outcomes,
                    Each(AnyOf(Eq("200"), Eq("409 The folder \"" + folder.path + "\" does not exist."))));
        EXPECT_EQ(user().attributes(folder).status, 404);
    }
}

} // namespace
} // namespace tarnd::test
