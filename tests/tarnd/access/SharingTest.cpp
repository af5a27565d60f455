// What is known by an id rather than a path, and what lists without one: an id that works for somebody else
// is a way around every rule about paths.
#include "tests/tarnd/access/SharedWorld.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tarnd::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

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

    std::string content(const Place& file) { return require(world.as(Actor::owner).read(file)).body; }

    SharedWorld world;
};

/// The shared paths, in the order listed, files first.
std::vector<std::string> sharedWith(ServiceUser& user)
{
    std::vector<std::string> paths;
    const auto document = parseXml(require(user.sharedContent()).body);
    for (const auto* sharer : document.all("SharedContent")) {
        EXPECT_EQ(sharer->only("SharedByUserId"), "alice");
        for (const auto* path : sharer->all("Path"))
            paths.push_back(path->text);
    }
    return paths;
}

TEST_F(Sharing, AHandleServesOnlyTheSessionThatOpenedIt)
{
    const std::string unknown = "400 The session has no open file handle with this id.";
    const auto file = world.make(State::shared, Kind::file).place;
    auto& owner = world.as(Actor::owner);
    const auto handle =
        parseXml(require(owner.openReadWrite(file, "UPDATE", true)).body).only("FileHandleId");

    for (const auto actor : {Actor::stranger, Actor::itemReader, Actor::folderReader})
        EXPECT_EQ(tryToClose(actor, handle), unknown);
    EXPECT_EQ(content(file), "content");
    EXPECT_EQ(tryToClose(Actor::owner, handle), "200");
    EXPECT_EQ(content(file), "");
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

TEST_F(Sharing, SharedContentListsWhatIsGrantedNowAndNothingElse)
{
    const auto file = world.make(State::shared, Kind::file);
    const auto folder = world.make(State::shared, Kind::folder);
    for (const auto state : {State::unshared, State::revoked, State::movedOut, State::recreated,
                             State::deletedShared, State::deletedPrivate})
        for (const auto kind : {Kind::file, Kind::folder})
            world.make(state, kind);

    EXPECT_THAT(sharedWith(world.as(Actor::itemReader)), ElementsAre(file.place.path, folder.place.path));
    EXPECT_THAT(sharedWith(world.as(Actor::folderReader)), ElementsAre("/shared"));
    EXPECT_THAT(sharedWith(world.as(Actor::stranger)), IsEmpty());
    EXPECT_THAT(sharedWith(world.as(Actor::owner)), IsEmpty());

    require(world.as(Actor::owner).revoke(file.grant));
    EXPECT_THAT(sharedWith(world.as(Actor::itemReader)), ElementsAre(folder.place.path));
}

TEST_F(Sharing, AllGrantsAreThoseOnesOwn)
{
    world.make(State::shared, Kind::file);
    const auto subjects = [&](Actor actor) {
        std::vector<std::string> names;
        const auto document = parseXml(require(world.as(actor).grants()).body);
        for (const auto* name : document.all("SubjectName"))
            names.push_back(name->text);
        return names;
    };
    EXPECT_THAT(subjects(Actor::owner), ElementsAre("carol", "bob"));
    for (const auto actor : {Actor::stranger, Actor::itemReader, Actor::folderReader})
        EXPECT_THAT(subjects(actor), IsEmpty());
}

/// Removing an account must not leave its grants for a later user of that name, nor the owner's for others.
TEST_F(Sharing, ALaterUserOfTheSameNameInheritsNothing)
{
    const auto item = world.make(State::shared, Kind::file);
    ASSERT_EQ(world.service.run({"user", "remove", "bob", "--force"}).exitCode, 0);
    EXPECT_EQ(world.as(Actor::itemReader).read(item.place).status, 401);
    ServiceUser again(world.service.url());
    require(again.login(world.service.addUser("bob")));
    EXPECT_EQ(again.read(item.place).status, 404);
    EXPECT_EQ(again.attributes({"", "/own"}).status, 404);

    const Place file{"alice", "/private/later"};
    require(world.as(Actor::owner).put(file, "content"));
    EXPECT_EQ(outcomeOf(world.as(Actor::owner).grant(file, "frank")),
              "400 There is no user named \"frank\".");
    require(world.as(Actor::owner).grant(file, "frank", true));
    ServiceUser frank(world.service.url());
    require(frank.login(world.service.addUser("frank")));
    EXPECT_EQ(frank.read(file).body, "content");
}

} // namespace
} // namespace tarnd::test
