// What is known by an id or a name rather than a path: one that works for somebody else is a way around every rule
// about paths.
#include "tests/tarnd/access/SharedWorld.h"

#include <gtest/gtest.h>

namespace tarnd::test {
namespace {

class Sharing : public ::testing::Test {
protected:
    std::string tryToClose(Actor actor, const std::string& handle)
    {
        return outcomeOf(world.as(actor).closeHandle(handle, true));
    }

    std::string tryToRevoke(Actor actor, const std::string& grant)
    {
        return outcomeOf(world.as(actor).revoke(grant));
    }

    SharedWorld world;
};

TEST_F(Sharing, AHandleServesOnlyTheSessionThatOpenedIt)
{
    const std::string unknown = "400 The session has no open file handle with this id.";
    const auto file = world.make(State::shared, Kind::file).place;
    auto& owner = world.as(Actor::owner);
    const auto handle =
        parseXml(require(owner.openReadWrite(file, "UPDATE", true)).body).only("FileHandleId");

    for (const auto actor : {Actor::stranger, Actor::itemReader, Actor::folderReader})
        EXPECT_EQ(tryToClose(actor, handle), unknown);
    EXPECT_EQ(owner.read(file).body, "content");
    EXPECT_EQ(tryToClose(Actor::owner, handle), "200");
    EXPECT_EQ(owner.read(file).body, "");
    EXPECT_EQ(tryToClose(Actor::owner, handle), unknown);
    EXPECT_EQ(tryToClose(Actor::owner, "none"), unknown);
}

TEST_F(Sharing, AGrantIsTakenBackOnlyByItsGiver)
{
    const std::string unknown = "400 There is no permission with this id.";
    const auto item = world.make(State::shared, Kind::file);
    for (const auto actor : {Actor::stranger, Actor::folderReader}) {
        EXPECT_EQ(tryToRevoke(actor, item.grant), unknown);
        EXPECT_EQ(world.as(actor).revoke(item.grant), world.as(actor).revoke("none"));
    }
    EXPECT_EQ(tryToRevoke(Actor::itemReader, item.grant),
              "403 You may read this item but not change or share it.");

    EXPECT_EQ(world.as(Actor::itemReader).read(item.place).status, 200);
    EXPECT_EQ(tryToRevoke(Actor::owner, item.grant), "200");
    EXPECT_EQ(world.as(Actor::itemReader).read(item.place).status, 404);
    EXPECT_EQ(tryToRevoke(Actor::owner, item.grant), unknown);
    EXPECT_EQ(tryToRevoke(Actor::itemReader, item.grant), unknown);
    EXPECT_EQ(tryToRevoke(Actor::owner, world.make(State::deletedShared, Kind::folder).grant), unknown);
}

/// Whoever comes by a name later has what was granted to the name before there was a user, and nothing of a user
/// who is gone.
TEST_F(Sharing, ALaterUserHasWhatWasGrantedToTheNameAndNothingElse)
{
    const auto item = world.make(State::shared, Kind::file);
    ASSERT_EQ(world.service.run({"user", "remove", "bob", "--force"}).exitCode, 0);
    EXPECT_EQ(world.as(Actor::itemReader).read(item.place).status, 401);
    const Place file{"alice", "/private/later"};
    require(world.as(Actor::owner).put(file, "content"));
    require(world.as(Actor::owner).grant(file, "frank", true));
    for (const std::string name : {"bob", "frank"}) {
        ServiceUser later(world.service.url());
        require(later.login(world.service.addUser(name)));
        EXPECT_EQ(later.read(item.place).status, 404);
        EXPECT_EQ(later.attributes({"", "/own"}).status, 404);
        EXPECT_EQ(later.read(file).status, name == "frank" ? 200 : 404);
    }
}

} // namespace
} // namespace tarnd::test
