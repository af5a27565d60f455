#include "tests/tarnd/access/SharedWorld.h"

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
    using enum State;
    const auto name = "/x" + std::to_string(++counter);
    if (state == own) return create(owner, "/own" + name, kind);
    const bool isShared =
        state == shared || state == movedOut || state == deletedShared || state == neverShared;
    const auto path = (isShared ? "/shared" : "/private") + name;
    const bool otherOne = state == otherKind || (state == belowFile && kind == Kind::folder);
    const auto made = !otherOne ? kind : kind == Kind::file ? Kind::folder : Kind::file;
    if (state == root) return {{"alice", "/"}};
    if (state == unknownBucket) return {{"zoe", path}};
    if (state == belowMissing) return {{"alice", path + "/below"}};
    if (state == neverShared || state == neverPrivate) return {{"alice", path}};

    auto& alice = as(Actor::owner);
    auto item = create(Actor::owner, path, made);
    if (state == belowFile) return {{"alice", path + "/below"}};
    if (state == shared || state == revoked || state == recreated || state == deletedShared ||
        state == deletedPrivate)
        item.grant =
            parseXml(require(alice.grant(item.place, nameOf(Actor::itemReader))).body).only("PermissionId");
    if (state == revoked) require(alice.revoke(item.grant));
    if (state == recreated || state == deletedShared || state == deletedPrivate)
        require(kind == Kind::file ? alice.deleteFile(item.place) : alice.deleteFolder(item.place, true));
    if (state == recreated) {
        const auto before = std::exchange(item, create(Actor::owner, path, kind));
        item.grant = before.grant;
        item.link = before.link;
    }
    if (state == movedOut) {
        item.place.path = "/private" + name;
        require(alice.move({"", path}, item.place, false));
    }
    return item;
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

std::string SharedWorld::ownersView()
{
    auto& owner = as(Actor::owner);
    std::string view = require(owner.grants()).body;
    for (const auto* folder : {"/", "/shared", "/private"})
        view += "\n" + require(owner.list({"", folder})).body;
    return view;
}

} // namespace tarnd::test
