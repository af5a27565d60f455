#include "tests/tarnd/model/RandomUser.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>

namespace tarnd::test {

namespace {

const std::vector<std::string> names = {"a", "b", "B", "c d", "\xC3\xA9", "<&>"};
const std::vector<std::string> modes = {"CREATE", "UPDATE", "CREATE_OR_UPDATE"};
constexpr std::size_t maxDepth = 4;

std::string join(const std::string& folder, const std::string& name)
{
    return folder == "/" ? "/" + name : folder + "/" + name;
}

std::string namesOf(const std::vector<const XmlElement*>& records)
{
    std::string all;
    for (const auto* record : records)
        all += record->only("Name") + "|";
    return all;
}

std::string joined(const std::vector<std::string>& texts)
{
    std::string all;
    for (const auto& text : texts)
        all += text + "|";
    return all;
}

std::vector<const XmlElement*> childrenOf(const XmlElement& element)
{
    std::vector<const XmlElement*> children;
    for (const auto& child : element.children)
        children.push_back(&child);
    return children;
}

} // namespace

RandomUser::RandomUser(std::deque<Account>& all, std::size_t which, std::vector<std::string> urls,
                       unsigned seed)
    : accounts(all), own(all[which]), serverUrls(std::move(urls)), random(seed), user(serverUrls.front())
{
    judge("login", http().login(own.token), 200);
}

bool RandomUser::step()
{
    struct Weighted {
        unsigned weight;
        Step step;
    };

    static const Weighted steps[] = {
        {22, &RandomUser::put},         {8, &RandomUser::read},          {5, &RandomUser::deleteFile},
        {4, &RandomUser::handle},       {10, &RandomUser::createFolder}, {6, &RandomUser::list},
        {3, &RandomUser::deleteFolder}, {10, &RandomUser::move},         {4, &RandomUser::attributes},
        {6, &RandomUser::grant},        {3, &RandomUser::revoke},        {2, &RandomUser::listGrants},
        {4, &RandomUser::versions},     {7, &RandomUser::restore},       {2, &RandomUser::loginAgain},
        {12, &RandomUser::readForeign}, {3, &RandomUser::changeForeign}, {1, &RandomUser::sharedContent},
    };
    unsigned total = 0;
    for (const auto& each : steps)
        total += each.weight;
    unsigned chosen = below(total);
    const auto* step = std::begin(steps);
    for (; chosen >= step->weight; ++step)
        chosen -= step->weight;
    (this->*step->step)();
    return agrees;
}

bool RandomUser::judgeEverything()
{
    const std::lock_guard lock(own.mutex);
    for (const auto& path : own.tree.paths()) {
        if (own.tree.isFolder(path)) {
            judgeListing(http().list({"", path}), own, path);
            continue;
        }
        judge("content of " + path, http().read({"", path}).body, own.tree.file(path).shown().content);
        judgeVersions(http().versions({"", path}), own, path);
        for (const auto& version : own.tree.file(path).versions)
            judge("old content of " + path,
                  http().readVersion({"", path}, version.id, std::to_string(version.label)).body,
                  version.content);
    }
    return agrees;
}

void RandomUser::put()
{
    const std::lock_guard lock(own.mutex);
    const auto path = anyPath(own.tree);
    const auto& mode = modes[below(modes.size())];
    const bool newVersion = coin();
    const auto content =
        std::string(below(4) == 0 ? below(100'000) : below(40), static_cast<char>('a' + below(26))) +
        std::to_string(++counter);
    const auto reply = http().put({coin() ? own.name : "", path}, content, mode, newVersion);
    judge("put " + mode + (newVersion ? " as version " : " ") + path, reply,
          own.tree.put(path, mode, newVersion, content));
    if (reply.status == 200) learnVersion(reply, path);
}

void RandomUser::read()
{
    const std::lock_guard lock(own.mutex);
    const auto path = somePath(own.tree);
    const auto reply = http().read({"", path});
    judge("read " + path, reply, own.tree.readFile(path));
    if (reply.status == 200) judge("content of " + path, reply.body, own.tree.file(path).shown().content);
}

void RandomUser::deleteFile()
{
    const std::lock_guard lock(own.mutex);
    const auto path = somePath(own.tree);
    judge("delete " + path, http().deleteFile({"", path}), own.tree.deleteFile(path));
}

/// Nothing can be written through a handle: a commit leaves a created or truncated file empty.
void RandomUser::handle()
{
    const std::lock_guard lock(own.mutex);
    const auto path = anyPath(own.tree);
    const auto& mode = modes[below(modes.size())];
    const bool truncate = coin();
    auto committed = own.tree;
    const bool created = !committed.exists(path);
    const auto opened = http().openReadWrite({"", path}, mode, truncate);
    judge("open " + mode + " " + path, opened, committed.put(path, mode, false, ""));
    if (opened.status != 200) return;
    const auto document = parseXml(opened.body);
    judge("created by opening " + path, document.only("FileCreated"), created ? "true" : "false");
    judge("size after opening " + path, document.only("FileSize"),
          std::to_string(created || truncate ? 0 : own.tree.file(path).shown().content.size()));

    const bool commit = coin();
    const bool newVersion = coin();
    judge("close " + path, http().closeHandle(document.only("FileHandleId"), commit, newVersion), 200);
    if (!commit || !(created || truncate)) return;
    own.tree.put(path, "CREATE_OR_UPDATE", newVersion, "");
    const auto listed = parseXml(http().versions({"", path}).body);
    auto& version = own.tree.file(path).shown();
    if (version.id.empty()) version.id = listed.all("VersionId").front()->text; // an added one is the newest
    judgeVersions(http().versions({"", path}), own, path);
}

void RandomUser::createFolder()
{
    const std::lock_guard lock(own.mutex);
    const auto path = anyPath(own.tree);
    judge("mkdir " + path, http().createFolder({"", path}), own.tree.createFolder(path));
}

void RandomUser::list()
{
    const std::lock_guard lock(own.mutex);
    const auto path = somePath(own.tree);
    const auto reply = http().list({"", path});
    judge("list " + path, reply, own.tree.listFolder(path));
    if (reply.status == 200) judgeListing(reply, own, path);
}

void RandomUser::deleteFolder()
{
    const std::lock_guard lock(own.mutex);
    const auto path = somePath(own.tree);
    const bool force = below(3) == 0;
    judge(std::string(force ? "rmdir with all " : "rmdir ") + path, http().deleteFolder({"", path}, force),
          own.tree.deleteFolder(path, force));
}

void RandomUser::move()
{
    const std::lock_guard lock(own.mutex);
    const auto from = somePath(own.tree);
    const auto to = anyPath(own.tree);
    if (from == to) return;
    const bool overwrite = coin();
    judge("move " + from + (overwrite ? " over " : " to ") + to,
          http().move({"", from}, {coin() ? own.name : "", to}, overwrite),
          own.tree.move(from, to, overwrite));
}

void RandomUser::attributes()
{
    const std::lock_guard lock(own.mutex);
    const auto path = anyPath(own.tree);
    const auto reply = http().attributes({"", path});
    judge("attributes of " + path, reply, own.tree.readItem(path));
    if (reply.status == 200) judgeAttributes(reply, own, path);
}

void RandomUser::grant()
{
    const std::lock_guard lock(own.mutex);
    const auto path = somePath(own.tree);
    const auto& subject = someOther().name;
    const auto reply = http().grant({own.name, path}, subject);
    judge("grant " + path + " to " + subject, reply, own.tree.readItem(path));
    if (reply.status != 200) return;
    const auto id = parseXml(reply.body).only("PermissionId");
    const auto& known = own.tree.grants.try_emplace({path, subject}, id).first->second;
    judge("id of the grant of " + path + " to " + subject, id, known);
}

void RandomUser::revoke()
{
    const std::lock_guard lock(own.mutex);
    auto& grants = own.tree.grants;
    if (grants.empty()) return;
    const auto chosen = std::next(grants.begin(), below(grants.size()));
    judge("revoke grant on " + chosen->first.first, http().revoke(chosen->second), 200);
    judge("revoke again", http().revoke(chosen->second), 400);
    grants.erase(chosen);
}

void RandomUser::listGrants()
{
    const std::lock_guard lock(own.mutex);
    const auto document = parseXml(http().grants().body);
    std::set<std::string> got, expected;
    for (const auto* each : document.all("Permission"))
        got.insert(each->only("Path") + " " + each->only("SubjectName") + " " + each->only("PermissionId"));
    for (const auto& [grant, id] : own.tree.grants)
        expected.insert(grant.first + " " + grant.second + " " + id);
    judge("grants", joined({got.begin(), got.end()}), joined({expected.begin(), expected.end()}));
}

void RandomUser::versions()
{
    const std::lock_guard lock(own.mutex);
    const auto path = somePath(own.tree);
    const auto reply = http().versions({"", path});
    judge("versions of " + path, reply, own.tree.readFile(path));
    if (reply.status == 200) judgeVersions(reply, own, path);
}

void RandomUser::restore()
{
    const std::lock_guard lock(own.mutex);
    const auto path = somePath(own.tree);
    if (!own.tree.isFile(path)) return;
    const auto& all = own.tree.file(path).versions;
    const auto index = below(all.size());
    const bool newVersion = coin();
    const auto version = all[index];
    const auto reply = http().restore({"", path}, version.id, std::to_string(version.label), newVersion);
    judge((newVersion ? "restore a copy of " : "restore ") + path, reply,
          own.tree.restore(path, index, newVersion));
    if (reply.status == 200) learnVersion(reply, path);
}

/// A session is one for all servers, and ends for all of them at once.
void RandomUser::loginAgain()
{
    const auto old = user.session();
    judge("logout", http().logout(), 200);
    for (const auto& url : serverUrls) {
        user.moveTo(url);
        judge("ping after logout", user.ping(), 401);
    }
    judge("login with a wrong token", http().login(own.token + "0"), 401);
    judge("login", http().login(own.token), 200);
    judge("ping after login", http().ping(), 200);
}

void RandomUser::readForeign()
{
    auto& other = someOther();
    const std::lock_guard lock(other.mutex);
    const auto path = somePath(other.tree);
    const Place place{other.name, path};
    const auto what = " " + other.name + "'s " + path;
    const auto ruled = [&](int status) { return other.tree.forReader(own.name, path, status); };
    switch (below(4)) {
    case 0: {
        const auto reply = http().read(place);
        judge("read" + what, reply, ruled(other.tree.readFile(path)));
        if (reply.status == 200)
            judge("content of" + what, reply.body, other.tree.file(path).shown().content);
        break;
    }
    case 1: {
        const auto reply = http().list(place);
        judge("list" + what, reply, ruled(other.tree.listFolder(path)));
        if (reply.status == 200) judgeListing(reply, other, path);
        break;
    }
    case 2: {
        const auto reply = http().attributes(place);
        judge("attributes of" + what, reply, ruled(other.tree.readItem(path)));
        if (reply.status == 200) judgeAttributes(reply, other, path);
        break;
    }
    default: {
        const auto reply = http().versions(place);
        judge("versions of" + what, reply, ruled(other.tree.readFile(path)));
        if (reply.status == 200) judgeVersions(reply, other, path);
    }
    }
}

void RandomUser::changeForeign()
{
    auto& other = someOther();
    const std::lock_guard lock(other.mutex);
    const auto path = somePath(other.tree);
    const Place place{other.name, path};
    const int refusal = other.tree.forReader(own.name, path, 403);
    judge("move away " + other.name + "'s " + path, http().move(place, {own.name, "/stolen"}, true), refusal);
    judge("share " + other.name + "'s " + path, http().grant(place, someOther().name), refusal);
    if (other.tree.isFile(path)) {
        judge("change " + other.name + "'s " + path, http().put(place, "x", "UPDATE", coin()), refusal);
        judge("delete " + other.name + "'s " + path, http().deleteFile(place), refusal);
    } else {
        judge("rmdir " + other.name + "'s " + path, http().deleteFolder(place, true), refusal);
    }
}

void RandomUser::sharedContent()
{
    std::vector<std::unique_lock<std::mutex>> locks; // in one order, and nobody else holds two
    for (auto& account : accounts)
        locks.emplace_back(account.mutex);
    const auto document = parseXml(http().sharedContent().body);
    std::set<std::string> got, expected;
    for (const auto* sharer : document.all("SharedContent"))
        for (const auto* resource : sharer->all("Resource"))
            got.insert(sharer->only("SharedByUserId") + " " + resource->only("Bucket") + ":" +
                       resource->only("Path"));
    for (const auto& account : accounts)
        for (const auto& entry : account.tree.grants)
            if (entry.first.second == own.name)
                expected.insert(account.name + " " + account.name + ":" + entry.first.first);
    judge("shared content", joined({got.begin(), got.end()}), joined({expected.begin(), expected.end()}));
}

void RandomUser::judge(const std::string& what, const RestReply& reply, int status)
{
    if (reply.status == status) return;
    agrees = false;
    ADD_FAILURE() << own.name << ": " << what << " gave " << reply.status << ", not " << status << ": "
                  << reply.body;
}

void RandomUser::judge(const std::string& what, const std::string& got, const std::string& expected)
{
    if (got == expected) return;
    agrees = false;
    ADD_FAILURE() << own.name << ": " << what << " is " << got.substr(0, 400) << ", not "
                  << expected.substr(0, 400);
}

void RandomUser::judgeListing(const RestReply& reply, const Account& of, const std::string& path)
{
    const auto document = parseXml(reply.body);
    const auto files = childrenOf(document.child("Files"));
    judge("name of " + path, document.child("FolderSummary").only("Name"), nameOf(path));
    judge("files in " + path, namesOf(files), joined(of.tree.filesIn(path)));
    judge("folders in " + path, namesOf(childrenOf(document.child("Folders"))),
          joined(of.tree.foldersIn(path)));
    for (const auto* file : files) {
        if (!of.tree.isFile(join(path, file->only("Name")))) continue;
        const auto size = of.tree.file(join(path, file->only("Name"))).shown().content.size();
        judge("size in " + path, file->only("Size"), std::to_string(size));
        judge("writable in " + path, file->only("Writable"), &of == &own ? "true" : "false");
    }
}

void RandomUser::judgeAttributes(const RestReply& reply, const Account& of, const std::string& path)
{
    const auto document = parseXml(reply.body);
    const bool isFile = of.tree.isFile(path);
    judge("name of " + path, document.only("Name"), nameOf(path));
    judge("type of " + path, document.only("Type"), isFile ? "FILE" : "FOLDER");
    judge("writable of " + path, document.only("Writable"), &of == &own ? "true" : "false");
    if (isFile)
        judge("size of " + path, document.only("Size"),
              std::to_string(of.tree.file(path).shown().content.size()));
}

void RandomUser::judgeVersions(const RestReply& reply, const Account& of, const std::string& path)
{
    const auto document = parseXml(reply.body);
    std::vector<std::string> got, expected;
    for (const auto* version : document.all("VersionSummary"))
        got.push_back(version->only("VersionLabel") + " " + version->only("VersionId"));
    for (const auto& version : of.tree.file(path).versions)
        expected.insert(expected.begin(), std::to_string(version.label) + " " + version.id);
    judge("versions of " + path, joined(got), joined(expected));
    judge("name in versions of " + path, document.only("Name"), nameOf(path));
}

/// The reply names the version now current: a new one by a new id, an old one by its own.
void RandomUser::learnVersion(const RestReply& reply, const std::string& path)
{
    const auto document = parseXml(reply.body);
    auto& version = own.tree.file(path).shown();
    judge("label of " + path, document.only("VersionLabel"), std::to_string(version.label));
    if (version.id.empty()) version.id = document.only("VersionId");
    judge("version of " + path, document.only("VersionId"), version.id);
}

unsigned RandomUser::below(std::size_t count)
{
    return static_cast<unsigned>(random() % count);
}

/// Mostly one that is there.
std::string RandomUser::somePath(const TreeModel& tree)
{
    if (below(8) == 0) return anyPath(tree);
    const auto paths = tree.paths();
    return paths[below(paths.size())];
}

/// One that may be there, not the root, mostly in a folder that is there.
std::string RandomUser::anyPath(const TreeModel& tree)
{
    auto paths = tree.paths();
    auto& folder = paths[below(paths.size())];
    if (std::count(folder.begin(), folder.end(), '/') >= static_cast<std::ptrdiff_t>(maxDepth)) folder = "/";
    return join(folder, names[below(names.size())]);
}

Account& RandomUser::someOther()
{
    while (true)
        if (auto& account = accounts[below(accounts.size())]; &account != &own) return account;
}

ServiceUser& RandomUser::http()
{
    user.moveTo(serverUrls[below(serverUrls.size())]);
    return user;
}

} // namespace tarnd::test
