#include "tests/tarnd/durability/Actor.h"

namespace tarnd::test {

RestReply Actor::command(const std::string& verb, const std::string& option) const
{
    std::vector<std::string> arguments{"user", verb, name};
    if (!option.empty()) arguments.push_back(option);
    const auto result = service->run(arguments);
    if (result.exitCode != 0)
        throw std::runtime_error(verb + ": " + std::to_string(result.exitCode) + " " + result.err);
    return {200, {}, result.out};
}

int Change::make(Actor& actor) const
{
    try {
        actor.user.moveTo(actor.service->url());
        const auto reply = send(actor);
        if (reply.headers.empty() && !reply.body.empty()) actor.token = reply.body.substr(0, 64);
        for (const auto& [element, id] : {std::pair("FileHandleId", &actor.handle),
                                          {"PermissionId", &actor.grant},
                                          {"PublicLinkId", &actor.link}})
            if (reply.body.find(element) != std::string::npos) *id = parseXml(reply.body).only(element);
        return reply.status;
    } catch (const std::runtime_error& error) { // the service is gone
        actor.trouble = error.what();
        return 0;
    }
}

const std::vector<Change>& changes()
{
    using A = Actor;
    using U = ServiceUser;
    static const Place a{"", "/a"}, b{"", "/d/b"}, c{"", "/c"}, d{"", "/d"}, h{"", "/h"};
    static const std::string large(100'000, 'x'); // arrives in several pieces
    static const std::vector<Change> all = {
        {"UserAdd", [](A& actor) { return actor.command("add"); }},
        {"Login", [](A& actor) { return actor.user.login(actor.token); }},
        {"PutNew", [](A& actor) { return actor.user.put(a, "first", "CREATE", false); }},
        {"PutOver", [](A& actor) { return actor.user.put(a, large, "UPDATE", false); }},
        {"PutVersion",
         [](A& actor) {
             const auto part =
                 actor.user.send("GET", U::targetOf("files", a), {}, {}, "Range: bytes=99999-\r\n");
             return part.body == "x" ? actor.user.put(a, "third", "UPDATE", true) : part;
         }},
        {"PutInChunks",
         [](A& actor) {
             return actor.user.send(
                 "PUT", U::targetOf("files", a, "&createMode=UPDATE&createNewVersion=false"),
                 "186a0\r\n" + large + "\r\n1\r\n4\r\n0\r\n\r\n", {}, "Transfer-Encoding: chunked\r\n");
         }},
        {"MakeFolder", [](A& actor) { return actor.user.createFolder(d); }},
        {"Move", [](A& actor) { return actor.user.move(a, b, false); }},
        {"PutAnother", [](A& actor) { return actor.user.put(c, "other", "CREATE_OR_UPDATE", false); }},
        {"MoveOver", [](A& actor) { return actor.user.move(c, b, true); }},
        {"PutSecondVersion", [](A& actor) { return actor.user.put(b, large + "2", "UPDATE", true); }},
        {"RestoreInPlace", [](A& actor) { return actor.user.restore(b, "", "1", false); }},
        {"RestoreCopy", [](A& actor) { return actor.user.restore(b, "", "2", true); }},
        {"Grant", [](A& actor) { return actor.user.grant(d, "keeper"); }},
        {"GrantToNobodyYet", [](A& actor) { return actor.user.grant(b, actor.name + "-guest", true); }},
        {"Revoke", [](A& actor) { return actor.user.revoke(actor.grant); }},
        {"Link", [](A& actor) { return actor.user.link(b); }},
        {"LinkThatEnds", [](A& actor) { return actor.user.linkUntil(d, 4'102'444'800'000); }},
        {"RevokeLink", [](A& actor) { return actor.user.revokeLink(actor.link); }},
        {"HandleOpen", [](A& actor) { return actor.user.openReadWrite(h, "CREATE", false); }},
        {"HandleCommit", [](A& actor) { return actor.user.closeHandle(actor.handle, true); }},
        {"HandleOpenAgain", [](A& actor) { return actor.user.openReadWrite(h, "UPDATE", true); }},
        {"HandleAbort", [](A& actor) { return actor.user.closeHandle(actor.handle, false); }},
        {"DeleteFile", [](A& actor) { return actor.user.deleteFile(h); }},
        {"Rotate", [](A& actor) { return actor.command("rotate"); }},
        {"LoginAgain", [](A& actor) { return actor.user.login(actor.token); }},
        {"DeleteFolder", [](A& actor) { return actor.user.deleteFolder(d, true); }},
        {"PutLast", [](A& actor) { return actor.user.put(c, "last", "CREATE", true); }},
        {"Logout", [](A& actor) { return actor.user.logout(); }},
        {"UserRemove", [](A& actor) { return actor.command("remove", "--force"); }},
    };
    return all;
}

} // namespace tarnd::test
