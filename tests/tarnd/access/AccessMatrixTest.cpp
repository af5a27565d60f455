// Who may do what to which item, every combination: the one that nobody thought of is the leak. And what
// somebody may not see has to answer exactly like what is not there, in every byte of the reply.
#include "tarnd/http/Routes.h"
#include "tests/tarnd/access/SharedWorld.h"

#include <functional>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <optional>

namespace tarnd::test {
namespace {

struct Attempt {
    Place place;
    std::string oldVersion;
    Place mine; ///< an item of the user's own, of the same kind
    Place free; ///< nothing, in the user's bucket
};

struct Operation {
    std::string name;
    Effect effect;
    std::vector<Kind> kinds; ///< of item it is for
    std::function<RestReply(ServiceUser&, const Attempt&)> run;
    std::string onOwnItem = "200";
};

const std::vector<Operation>& operations()
{
    using U = ServiceUser;
    using A = const Attempt;
    using enum Effect;
    static const std::string label = "1", taken = "409 The file already exists.";
    static const std::vector<Kind> file = {Kind::file}, folder = {Kind::folder},
                                   both = {Kind::file, Kind::folder};
    static const std::vector<Operation> all = {
        {"read", reads, file, [](U& u, A& a) { return u.read(a.place); }, "content"},
        {"old version", reads, file, [](U& u, A& a) { return u.readVersion(a.place, a.oldVersion, label); },
         "old"},
        {"head", reads, file, [](U& u, A& a) { return u.send("HEAD", U::targetOf("files", a.place)); }},
        {"download", reads, file, [](U& u, A& a) { return u.download(a.place); }, "content"},
        {"attributes", reads, both, [](U& u, A& a) { return u.attributes(a.place); }},
        {"open", reads, file, [](U& u, A& a) { return u.openReadOnly(a.place); }},
        {"versions", reads, file, [](U& u, A& a) { return u.versions(a.place); }},
        {"list", reads, folder, [](U& u, A& a) { return u.list(a.place); }},
        {"update", changes, file, [](U& u, A& a) { return u.put(a.place, "changed", "UPDATE", true); }},
        {"replace", changes, file, [](U& u, A& a) { return u.put(a.place, "changed", "UPDATE", false); }},
        {"delete", changes, file, [](U& u, A& a) { return u.deleteFile(a.place); }},
        {"delete all", changes, folder, [](U& u, A& a) { return u.deleteFolder(a.place, true); }},
        {"truncate", changes, file, [](U& u, A& a) { return u.openReadWrite(a.place, "UPDATE", true); }},
        {"restore a copy", changes, file,
         [](U& u, A& a) { return u.restore(a.place, a.oldVersion, label, true); }},
        {"restore", changes, file, [](U& u, A& a) { return u.restore(a.place, a.oldVersion, label, false); }},
        {"move away", changes, both, [](U& u, A& a) { return u.move(a.place, a.free, false); }},
        {"link", changes, both, [](U& u, A& a) { return u.link(a.place); }},
        {"link that ends", changes, both, [](U& u, A& a) { return u.linkUntil(a.place, 4'102'444'800'000); }},
        {"grant", changes, both, [](U& u, A& a) { return u.grant(a.place, "erin"); }},
        {"grant to nobody", changes, both, [](U& u, A& a) { return u.grant(a.place, "zoe"); },
         "400 There is no user named \"zoe\"."},
        {"list grants", changes, both, [](U& u, A& a) { return u.grantsOn(a.place); }},
        {"create", makes, file, [](U& u, A& a) { return u.put(a.place, "new"); }, taken},
        {"create or update", makes, file,
         [](U& u, A& a) { return u.put(a.place, "new", "CREATE_OR_UPDATE"); }},
        {"open new", makes, file, [](U& u, A& a) { return u.openReadWrite(a.place, "CREATE", false); },
         taken},
        {"create folder", makes, folder, [](U& u, A& a) { return u.createFolder(a.place); },
         "409 The folder already exists."},
        {"move onto", moves, both, [](U& u, A& a) { return u.move(a.mine, a.place, false); },
         "409 The target of the move already exists."},
        {"move over", moves, both, [](U& u, A& a) { return u.move(a.mine, a.place, true); }},
    };
    return all;
}

const char* nameOf(State state)
{
    constexpr const char* names[] = {
        "own",       "shared",        "unshared",     "revoked",        "movedOut",
        "recreated", "deletedShared", "neverShared",  "deletedPrivate", "neverPrivate",
        "otherKind", "belowFile",     "belowMissing", "root",           "unknownBucket"};
    return names[static_cast<int>(state)];
}

const char* nameOf(Actor actor)
{
    constexpr const char* names[] = {"stranger", "itemReader", "folderReader",
                                     "nobody",   "linkHolder", "owner"};
    return names[static_cast<int>(actor)];
}

constexpr Actor others[] = {Actor::stranger, Actor::itemReader, Actor::folderReader, Actor::nobody,
                            Actor::linkHolder};

class AccessMatrix : public ::testing::Test {
protected:
    /// One cell: attempts the operation and judges its outcome.
    void attempt(const Operation& operation, Kind kind, State state, Actor actor, const MadeItem& item)
    {
        SCOPED_TRACE(operation.name + (kind == Kind::file ? " file " : " folder ") + nameOf(state) + " by " +
                     nameOf(actor));
        auto& user = world.as(actor);
        const auto name = SharedWorld::nameOf(actor);
        const Attempt it{item.place,
                         item.oldVersion,
                         mineOf(user, operation, kind),
                         {name, "/free" + std::to_string(++cells)}};
        const auto reply = operation.run(user, it);
        reached.insert(addressOf(routeOf(Request(user.lastRequest().first, user.lastRequest().second, {}))));
        const bool isHead = user.lastRequest().first == "HEAD"; // which has no sentence
        const bool isContent = reply.headers.at("content-type") == "application/octet-stream";
        const auto ruled = ruledOutcome(actor, state, operation.effect, operation.onOwnItem);
        EXPECT_EQ(isHead      ? std::to_string(reply.status)
                  : isContent ? reply.body
                              : outcomeOf(reply),
                  isHead ? ruled.substr(0, 3) : ruled);
        if (operation.effect == Effect::moves && !name.empty()) {
            EXPECT_EQ(user.attributes(it.mine).status, reply.status == 200 ? 404 : 200);
        }
        if (reply.status != 404 && reply.status != 401) return;
        const auto& first = refusals.try_emplace({operation.name, reply.status}, reply).first->second;
        EXPECT_EQ(reply.headers, first.headers);
        EXPECT_EQ(reply.body, first.body);
    }

    /// Every state in which somebody may find an item. What others attempt leaves all as it is; then comes
    /// the owner's turn, and everybody's with items of their own.
    void attemptInEveryState(const Operation& operation, Kind kind)
    {
        std::map<State, MadeItem> items;
        for (int state = static_cast<int>(State::shared); state <= static_cast<int>(State::unknownBucket);
             ++state)
            items.emplace(static_cast<State>(state), world.make(static_cast<State>(state), kind));
        const auto before = world.ownersView();
        for (const auto& [state, item] : items)
            for (const auto actor : others)
                attempt(operation, kind, state, actor, item);
        EXPECT_EQ(world.ownersView(), before) << "after " << operation.name;
        for (const auto& [state, item] : items)
            if (state < firstStateForOthersOnly) attempt(operation, kind, state, Actor::owner, item);
        for (const auto actor : {Actor::stranger, Actor::itemReader, Actor::folderReader, Actor::owner})
            attempt(operation, kind, State::own, actor, world.make(State::own, kind, actor));
    }

    static std::string addressOf(const Route& route)
    {
        return std::string(route.method) + " " + std::string(route.path);
    }

    SharedWorld world;
    int cells = 0;
    std::set<std::string> reached;

    /// What names no item, so that there is no state of an item to tell apart: about the session itself, or about
    /// what an id names, which SharingTest.cpp tries.
    const std::set<std::string> namesNoItem = {
        "GET /service/v1/logout",         "GET /service/v1/ping",           "DELETE /service/v1/filehandle",
        "GET /service/v1/sharedcontent",  "DELETE /service/v1/permissions", "GET /service/v1/public/links",
        "DELETE /service/v1/public/links"};

private:
    /// Made anew for the operations that use it up.
    Place mineOf(ServiceUser& user, const Operation& operation, Kind kind)
    {
        const Place mine{"", kind == Kind::file ? "/own/file" : "/own/folder"};
        if (operation.effect != Effect::moves) return mine;
        kind == Kind::file ? user.put(mine, "mine", "CREATE_OR_UPDATE") : user.createFolder(mine);
        return mine;
    }

    std::map<std::pair<std::string, int>, RestReply> refusals; ///< the first of each operation and status
};

TEST_F(AccessMatrix, FollowsTheRulesInEveryCell)
{
    for (const auto& operation : operations())
        for (const auto kind : operation.kinds)
            attemptInEveryState(operation, kind);
    RecordProperty("cells", cells);
    EXPECT_GT(cells, 2000);
    for (const auto& route : allRoutes())
        EXPECT_TRUE((route.access != Access::session && route.access != Access::form) ||
                    reached.contains(addressOf(route)) || namesNoItem.contains(addressOf(route)))
            << addressOf(route) << " has no case here";
}

TEST_F(AccessMatrix, NoOtherRouteIsOpenWithoutASession)
{
    const std::set<std::string_view> open = {"/service/v1/login", "/public",  "/health/live",
                                             "/health/ready",     "/metrics", "/",
                                             "/app.css",          "/app.js",  "/favicon.ico"};
    for (const auto& route : allRoutes())
        for (const auto actor : {Actor::nobody, Actor::linkHolder}) {
            const auto target = std::string(route.path) + (route.tail == Tail::item ? "/private" : "");
            const auto reply = world.as(actor).send(std::string(route.method), target);
            if (route.access == Access::session && route.method == "HEAD")
                EXPECT_EQ(reply.status, 401) << addressOf(route);
            else if (route.access == Access::session || route.access == Access::form)
                EXPECT_EQ(outcomeOf(reply), "401 Your session has ended. Log in again.") << addressOf(route);
            else
                EXPECT_TRUE(open.contains(route.path)) << addressOf(route);
        }
}

/// The service knows of a while ago whose it was. What could be done a moment earlier is tried, and what would fail for
/// other reasons.
TEST_F(AccessMatrix, ASessionThatHasEndedOpensNothing)
{
    const auto token = world.service.addUser("fay");
    ServiceUser fay(world.service.url());
    const auto listing = [&] { return require(fay.list({"", "/"})).body; };
    const auto tryEnded = [&](const std::function<RestReply()>& attempt) {
        const auto before = listing();
        require(fay.logout());
        EXPECT_EQ(attempt().status, 401);
        require(fay.login(token));
        EXPECT_EQ(listing(), before);
    };
    require(fay.login(token));
    for (const auto& operation : operations())
        for (const auto kind : operation.kinds) {
            const auto number = std::to_string(++cells);
            SCOPED_TRACE(operation.name);
            Attempt it{{"", "/item" + number}, "", {"", "/mine" + number}, {"", "/free" + number}};
            for (const auto& place : {it.place, it.mine})
                require(kind == Kind::file ? fay.put(place, "content") : fay.createFolder(place));
            if (kind == Kind::file)
                it.oldVersion = parseXml(require(fay.put(it.place, "new", "UPDATE")).body).only("VersionId");
            if (operation.effect == Effect::makes) it.place = it.free;
            tryEnded([&] { return operation.run(fay, it); });
        }
    tryEnded([&] { return fay.send("PUT", "/service/v1/files/without-parameters"); });
    tryEnded([&] { return fay.attributes({"", "/not-there"}); });
}

/// A link shows its very item to everybody, and nothing once that item is gone: not what has its name later.
TEST_F(AccessMatrix, PublicLinksShowTheirItemToEverybodyWhileItIsThere)
{
    world.withLinks = true;
    for (const auto kind : {Kind::file, Kind::folder}) {
        std::optional<RestReply> refusal;
        for (int number = static_cast<int>(State::shared); number <= static_cast<int>(State::neverPrivate);
             ++number) {
            const auto state = static_cast<State>(number);
            const auto item = world.make(state, kind);
            const bool isThere = state <= State::movedOut;
            for (const auto actor : {Actor::stranger, Actor::itemReader, Actor::nobody, Actor::owner}) {
                const auto reply = world.as(actor).send("GET", item.link);
                EXPECT_EQ(reply.status, isThere ? 200 : 404) << nameOf(state) << " " << nameOf(actor);
                if (isThere && kind == Kind::file) {
                    EXPECT_EQ(reply.body, "content");
                }
                if (isThere) continue;
                EXPECT_EQ(reply, refusal.value_or(reply)) << nameOf(state) << " " << nameOf(actor);
                refusal = reply;
            }
        }
    }
}

} // namespace
} // namespace tarnd::test
