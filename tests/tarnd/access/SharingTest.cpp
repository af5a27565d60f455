// What is known by an id or a name rather than a path: one that works for somebody else is a way around every rule
// about paths.
#include "tests/tarnd/access/SharedWorld.h"

#include <chrono>
#include <gtest/gtest.h>
#include <thread>

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

/// A link that ended or was revoked answers exactly as one that never was, to everybody.
TEST_F(Sharing, ALinkIsListedAndRevokedByItsMakerAloneAndEndsWhenItIsToEnd)
{
    const auto nowIs = [] {
        using namespace std::chrono;
        return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    };
    const auto place = world.make(State::shared, Kind::file).place;
    auto& owner = world.as(Actor::owner);
    const auto made = [&](const RestReply& reply, const std::string& element) {
        return parseXml(require(reply).body).only(element);
    };
    const auto targetOf = [&](const RestReply& reply) {
        return made(reply, "PublicAccessUrl").substr(world.service.url().size());
    };
    const auto open = [&](const std::string& target) { return world.as(Actor::nobody).send("GET", target); };
    const auto end = nowIs() + 3'600'000;
    const auto never = targetOf(owner.link(place));
    const auto later = owner.linkUntil(place, end);
    EXPECT_EQ(owner.linkUntil(place, end), later);
    const auto soon = targetOf(owner.linkUntil(place, nowIs() + 1'000));
    const auto none = open("/public/none");
    for (const auto limit = nowIs() + 30'000; open(soon) != none && nowIs() < limit;)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_EQ(open(soon), none);
    EXPECT_EQ(outcomeOf(owner.linkUntil(place, nowIs() - 1)).substr(0, 38),
              "400 A link can end only in the future;");

    const auto id = made(later, "PublicLinkId");
    const auto listed = owner.links().body;
    for (const auto& url : {never, targetOf(later)}) {
        EXPECT_EQ(open(url).body, "content");
        EXPECT_NE(listed.find(url), std::string::npos) << listed;
    }
    EXPECT_NE(listed.find("<Expires>" + std::to_string(end) + "</Expires>"), std::string::npos) << listed;
    EXPECT_EQ(listed.find(soon), std::string::npos);
    const auto unknown = "400 There is no public link with the id \"" + id + "\".";
    for (const auto actor : {Actor::stranger, Actor::itemReader}) {
        EXPECT_EQ(world.as(actor).links().body.find(id), std::string::npos);
        EXPECT_EQ(outcomeOf(world.as(actor).revokeLink(id)), unknown);
    }
    require(owner.revokeLink(id));
    EXPECT_EQ(outcomeOf(owner.revokeLink(id)), unknown);
    EXPECT_EQ(open(targetOf(later)), none);
    EXPECT_EQ(open(never).body, "content");
    EXPECT_NE(targetOf(owner.linkUntil(place, end)), targetOf(later));
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
