#include "tests/tarnd/durability/Actor.h"

namespace tarnd::test {

ServiceUser Actor::user() const
{
    ServiceUser user(service->url());
    if (const auto session = told.find("TarnSessionId"); session != told.end())
        user.useSession(session->second);
    return user;
}

RestReply Actor::command(const std::vector<std::string>& arguments) const
{
    const auto result = service->run(arguments);
    return {result.exitCode == 0 ? 200 : 0, {}, result.out};
}

int Change::make(Actor& actor) const
{
    try {
        const auto reply = send(actor);
        for (const std::string element : {"TarnSessionId", "FileHandleId", "PermissionId"})
            if (reply.body.find("<" + element + ">") != std::string::npos)
                actor.told[element] = parseXml(reply.body).only(element);
        if (reply.headers.empty() && !reply.body.empty()) actor.told["token"] = reply.body.substr(0, 64);
        return reply.status;
    } catch (const std::runtime_error&) { // the service is gone
        return 0;
    }
}

const std::vector<Change>& changes()
{
    using A = Actor;
    static const std::string large(100'000, 'x'); // arrives in several pieces
    static const std::vector<Change> all = {
        {"UserAdd",
         [](A& a) {
             return a.command({"user", "add", a.name});
         }},
        {"Login", [](A& a) { return a.user().login(a.told["token"]); }},
        {"PutNew",
         [](A& a) {
             return a.user().put({"", "/a"}, "first", "CREATE", false);
         }},
        {"PutOver",
         [](A& a) {
             return a.user().put({"", "/a"}, large, "UPDATE", false);
         }},
        {"PutVersion",
         [](A& a) {
             return a.user().put({"", "/a"}, "third", "UPDATE", true);
         }},
        {"MakeFolder",
         [](A& a) {
             return a.user().createFolder({"", "/d"});
         }},
        {"Move",
         [](A& a) {
             return a.user().move({"", "/a"}, {"", "/d/b"}, false);
         }},
        {"PutAnother",
         [](A& a) {
             return a.user().put({"", "/c"}, "other", "CREATE_OR_UPDATE", false);
         }},
        {"MoveOver",
         [](A& a) {
             return a.user().move({"", "/c"}, {"", "/d/b"}, true);
         }},
        {"PutSecondVersion",
         [](A& a) {
             return a.user().put({"", "/d/b"}, large + "2", "UPDATE", true);
         }},
        {"RestoreInPlace",
         [](A& a) {
             return a.user().restore({"", "/d/b"}, "", "1", false);
         }},
        {"RestoreCopy",
         [](A& a) {
             return a.user().restore({"", "/d/b"}, "", "2", true);
         }},
        {"Grant",
         [](A& a) {
             return a.user().grant({"", "/d"}, "keeper");
         }},
        {"GrantToNobodyYet",
         [](A& a) {
             return a.user().grant({"", "/d/b"}, a.name + "-guest", true);
         }},
        {"Revoke", [](A& a) { return a.user().revoke(a.told["PermissionId"]); }},
        {"Link",
         [](A& a) {
             return a.user().link({"", "/d/b"});
         }},
        {"HandleOpen",
         [](A& a) {
             return a.user().openReadWrite({"", "/h"}, "CREATE", false);
         }},
        {"HandleCommit", [](A& a) { return a.user().closeHandle(a.told["FileHandleId"], true); }},
        {"HandleOpenAgain",
         [](A& a) {
             return a.user().openReadWrite({"", "/h"}, "UPDATE", true);
         }},
        {"HandleAbort", [](A& a) { return a.user().closeHandle(a.told["FileHandleId"], false); }},
        {"DeleteFile",
         [](A& a) {
             return a.user().deleteFile({"", "/h"});
         }},
        {"Rotate",
         [](A& a) {
             return a.command({"user", "rotate", a.name});
         }},
        {"LoginAgain", [](A& a) { return a.user().login(a.told["token"]); }},
        {"DeleteFolder",
         [](A& a) {
             return a.user().deleteFolder({"", "/d"}, true);
         }},
        {"PutLast",
         [](A& a) {
             return a.user().put({"", "/z"}, "last", "CREATE", true);
         }},
        {"Logout", [](A& a) { return a.user().logout(); }},
        {"UserRemove",
         [](A& a) {
             return a.command({"user", "remove", a.name, "--force"});
         }},
    };
    return all;
}

} // namespace tarnd::test
