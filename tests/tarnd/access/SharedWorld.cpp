#include "tests/tarnd/access/SharedWorld.h"

#include <stdexcept>

namespace tarnd::test {

SharedWorld::SharedWorld()
{
    std::map<Actor, std::string> tokens;
    for (const auto actor : {Actor::owner, Actor::itemReader, Actor::folderReader, Actor::stranger})
        tokens[actor] = service.addUser(nameOf(actor));
    service.addUser("erin");
    service.start();
    for (const auto& [actor, token] : tokens) {
        auto& user = users.emplace(actor, ServiceUser(service.url())).first->second;
        require(user.login(token));
        require(user.createFolder({"", "/own"}));
    }
    auto& owner = as(Actor::owner);
    require(owner.createFolder({"", "/shared"}));
    require(owner.createFolder({"", "/private"}));
    require(owner.grant({"", "/shared"}, nameOf(Actor::folderReader)));
    users.emplace(Actor::nobody, ServiceUser(service.url()));
    const auto link = parseXml(require(owner.link({"", "/private"})).body).only("PublicAccessUrl");
    users.emplace(Actor::linkHolder, ServiceUser(service.url()))
        .first->second.useSession(link.substr(link.rfind('/') + 1));
}

std::string SharedWorld::nameOf(Actor actor)
{
    switch (actor) {
    case Actor::owner:
        return "alice";
    case Actor::itemReader:
        return "bob";
    case Actor::folderReader:
        return "carol";
    case Actor::stranger:
        return "dave";
    default:
        return {};
    }
}

MadeItem SharedWorld::make(State state, Kind kind, Actor owner)
{
    const auto name = "/x" + std::to_string(++counter);
    if (state == State::own) return create(owner, "/own" + name, kind);
    return createInState(state, kind, name);
}

MadeItem SharedWorld::createInState(State state, Kind kind, const std::string& name)
{
    const auto nowhere = [](const std::string& path, const std::string& bucket = "alice") {
        return MadeItem{{bucket, path}};
    };
    const auto shared = "/shared" + name;
    const auto hidden = "/private" + name;
    const auto createShared = [&](const std::string& path) {
        auto item = create(Actor::owner, path, kind);
        share(item);
        return item;
    };
    const auto createAndDelete = [&](const std::string& path) {
        auto item = createShared(path);
        remove(item.place, kind);
        return item;
    };
    switch (state) {
    case State::shared:
        return createShared(shared);
    case State::revoked: {
        auto item = createShared(hidden);
        require(as(Actor::owner).revoke(item.grant));
        return item;
    }
    case State::movedOut: {
        auto item = create(Actor::owner, shared, kind);
        require(as(Actor::owner).move(item.place, {"alice", hidden}, false));
        item.place.path = hidden;
        return item;
    }
    case State::recreated: {
        const auto before = createAndDelete(hidden);
        auto item = create(Actor::owner, hidden, kind);
        item.grant = before.grant;
        item.link = before.link;
        return item;
    }
    case State::deletedShared:
        return createAndDelete(shared);
    case State::deletedPrivate:
        return createAndDelete(hidden);
    case State::neverShared:
        return nowhere(shared);
    case State::neverPrivate:
        return nowhere(hidden);
    case State::otherKind:
        return create(Actor::owner, hidden, kind == Kind::file ? Kind::folder : Kind::file);
    case State::belowFile:
        create(Actor::owner, hidden, Kind::file);
        return nowhere(hidden + "/below");
    case State::belowMissing:
        return nowhere(hidden + "/below");
    case State::root:
        return nowhere("/");
    case State::unknownBucket:
        return nowhere(hidden, "zoe");
    default:
        return create(Actor::owner, hidden, kind);
    }
}

MadeItem SharedWorld::create(Actor owner, const std::string& path, Kind kind)
{
    auto& user = as(owner);
    MadeItem item{{nameOf(owner), path}};
    if (kind == Kind::folder) {
        require(user.createFolder(item.place));
    } else {
        item.oldVersion = parseXml(require(user.put(item.place, "old")).body).only("VersionId");
        require(user.put(item.place, "content", "UPDATE", true));
    }
    if (!withLinks) return item;
    const auto link = parseXml(require(user.link(item.place)).body).only("PublicAccessUrl");
    item.link = link.substr(service.url().size());
    return item;
}

void SharedWorld::remove(const Place& place, Kind kind)
{
    auto& owner = as(Actor::owner);
    require(kind == Kind::file ? owner.deleteFile(place) : owner.deleteFolder(place, true));
}

void SharedWorld::share(MadeItem& item)
{
    const auto granted = require(as(Actor::owner).grant(item.place, nameOf(Actor::itemReader)));
    item.grant = parseXml(granted.body).only("PermissionId");
}

std::string SharedWorld::ownersView()
{
    auto& owner = as(Actor::owner);
    std::string view = require(owner.grants()).body;
    for (const auto* folder : {"/", "/shared", "/private"})
        view += "\n" + require(owner.list({"", folder})).body;
    return view;
}

RestReply require(RestReply reply)
{
    if (reply.status != 200) throw std::runtime_error("refused: " + reply.body);
    return reply;
}

} // namespace tarnd::test
