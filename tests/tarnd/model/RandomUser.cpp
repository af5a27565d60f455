#include "tests/tarnd/model/RandomUser.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>
#include <set>

namespace tarnd::test {

namespace {

const std::vector<std::string> names = {"a", "b", "B", "c d", "\xC3\xA9", "<&>"};
const std::vector<std::string> modes = {"CREATE", "UPDATE", "CREATE_OR_UPDATE"};
constexpr std::ptrdiff_t maxDepth = 4;

std::string join(const std::string& folder, const std::string& name)
{
    return folder == "/" ? "/" + name : folder + "/" + name;
}

std::string namesOf(const XmlElement& list)
{
    std::string all;
    for (const auto& record : list.children)
        all += record.only("Name") + "|";
    return all;
}

enum class About {
    reading,
    change, ///< of an item: for its owner alone
    grants, ///< of one's own
};

struct Operation {
    unsigned weight;
    const char* name;
    About about;
    RestReply (*send)(ServiceUser&, const Draw&);
    int (*foretell)(TreeModel&, const Draw&);
    void (RandomUser::*judge)(const Draw&, const RestReply&);
};

/// Nothing can be written through a handle: a commit leaves a created or truncated file empty.
RestReply useHandle(ServiceUser& user, const Draw& d)
{
    const auto opened = user.openReadWrite(d.item, d.mode, d.first);
    return opened.status == 200
               ? user.closeHandle(parseXml(opened.body).only("FileHandleId"), d.second, d.third)
               : opened;
}

int foretellHandle(TreeModel& tree, const Draw& d)
{
    auto opened = tree;
    const int status = opened.put(d.path, d.mode, false, {});
    const bool changes = d.second && (d.first || tree.findFile(d.path) != 200);
    return status == 200 && changes ? tree.put(d.path, "CREATE_OR_UPDATE", d.third, {}) : status;
}

using U = ServiceUser;
using T = TreeModel;
using D = const Draw;
using R = RandomUser;

const Operation operations[] = {
    {22, "put", About::change, [](U& u, D& d) { return u.put(d.item, d.content, d.mode, d.first); },
     [](T& t, D& d) { return t.put(d.path, d.mode, d.first, d.content); }, &R::version},
    {5, "delete", About::change, [](U& u, D& d) { return u.deleteFile(d.item); },
     [](T& t, D& d) { return t.deleteFile(d.path); }, &R::nothing},
    {4, "handle", About::change, useHandle, foretellHandle, &R::nothing},
    {10, "mkdir", About::change, [](U& u, D& d) { return u.createFolder(d.item); },
     [](T& t, D& d) { return t.createFolder(d.path); }, &R::nothing},
    {3, "rmdir", About::change, [](U& u, D& d) { return u.deleteFolder(d.item, d.first && d.second); },
     [](T& t, D& d) { return t.deleteFolder(d.path, d.first && d.second); }, &R::nothing},
    {10, "move", About::change, [](U& u, D& d) { return u.move(d.item, d.target, d.first); },
     [](T& t, D& d) { return t.move(d.path, d.target.path, d.first); }, &R::nothing},
    {7, "restore", About::change,
     [](U& u, D& d) { return u.restore(d.item, {}, std::to_string(d.version + 1), d.first); },
     [](T& t, D& d) { return t.restore(d.path, d.version, d.first); }, &R::version},
    {6, "grant", About::change, [](U& u, D& d) { return u.grant(d.item, d.subject); },
     [](T& t, D& d) { return t.grant(d.path, d.subject); }, &R::permission},
    {3, "revoke", About::grants, [](U& u, D& d) { return u.revoke(d.grant); },
     [](T& t, D& d) { return t.revoke(d.grant); }, &R::nothing},
    {10, "read", About::reading, [](U& u, D& d) { return u.read(d.item); },
     [](T& t, D& d) { return t.findFile(d.path); }, &R::content},
    {9, "list", About::reading, [](U& u, D& d) { return u.list(d.item); },
     [](T& t, D& d) { return t.findFolder(d.path); }, &R::listing},
    {7, "attributes", About::reading, [](U& u, D& d) { return u.attributes(d.item); },
     [](T& t, D& d) { return t.findItem(d.path); }, &R::attributes},
    {7, "versions", About::reading, [](U& u, D& d) { return u.versions(d.item); },
     [](T& t, D& d) { return t.findFile(d.path); }, &R::versions},
};

const unsigned allWeights = std::accumulate(std::begin(operations), std::end(operations), 0U,
                                            [](unsigned sum, const auto& each) { return sum + each.weight; });

} // namespace

RandomUser::RandomUser(std::deque<Account>& all, std::size_t which, std::vector<std::string> urls,
                       unsigned seed)
    : accounts(all), own(all[which]), serverUrls(std::move(urls)), random(seed), user(serverUrls.front())
{
    judge("login", outcomeOf(http().login(own.token)), "200");
}

bool RandomUser::step()
{
    if (below(50) == 0) loginAgain();
    auto& of = below(7) == 0 ? accounts[below(accounts.size())] : own;
    const std::lock_guard lock(of.mutex);
    const auto d = draw(of);
    std::size_t chosen = below(allWeights);
    const auto* operation = std::begin(operations);
    for (; chosen >= operation->weight; ++operation)
        chosen -= operation->weight;

    int status;
    if (&of == &own) {
        status = operation->foretell(of.tree, d);
    } else {
        auto unchanged = of.tree;
        status = operation->foretell(unchanged, d);
        const bool changes = operation->about != About::reading;
        // Which refusal comes first when there are several is not foretold.
        if (operation->about == About::grants || (changes && status != 200)) return agrees;
        if (!of.tree.isSharedWith(own.name, d.path))
            status = 404;
        else if (changes)
            status = 403;
    }
    const auto what = std::string(operation->name) + " " + of.name + ":" + d.path;
    const auto reply = operation->send(http(), d);
    judge(what + " " + d.mode + " " + d.target.path + "\n" + reply.body, std::to_string(reply.status),
          std::to_string(status));
    if (reply.status == 200) (this->*operation->judge)(d, reply);
    return agrees;
}

void RandomUser::judgeEverything()
{
    for (auto& [path, item] : own.tree.items) {
        auto d = draw(own);
        d.path = path;
        d.item = {"", path};
        if (!item.isFile()) {
            listing(d, http().list(d.item));
            continue;
        }
        content(d, http().read(d.item));
        versions(d, http().versions(d.item));
        for (const auto& each : item.versions)
            judge("old content of " + path,
                  http().readVersion(d.item, each.id, std::to_string(each.label)).body, each.content);
    }
    judgeShared();
}

void RandomUser::judgeShared()
{
    std::set<std::string> got, expected;
    const auto grants = parseXml(http().grants().body), shared = parseXml(http().sharedContent().body);
    for (const auto* each : grants.all("Permission"))
        got.insert(each->only("Path") + " " + each->only("SubjectName") + " " + each->only("PermissionId"));
    for (const auto& [path, item] : own.tree.items)
        for (const auto& [subject, id] : item.grants)
            expected.insert(path + " " + subject + " " + id);
    EXPECT_EQ(got, expected) << own.name;

    got.clear();
    expected.clear();
    for (const auto* sharer : shared.all("SharedContent"))
        for (const auto* each : sharer->all("Resource"))
            got.insert(sharer->only("SharedByUserId") + " " + each->only("Bucket") + ":" +
                       each->only("Path"));
    for (const auto& account : accounts)
        for (const auto& [path, item] : account.tree.items)
            if (item.grants.contains(own.name))
                expected.insert(account.name + " " + account.name + ":" + path);
    EXPECT_EQ(got, expected) << own.name;
}

/// A session is one for all servers, and ends for all of them at once.
void RandomUser::loginAgain()
{
    judge("logout", outcomeOf(http().logout()), "200");
    for (const auto& url : serverUrls) {
        user.moveTo(url);
        judge("ping after logout", std::to_string(user.ping().status), "401");
    }
    judge("login", outcomeOf(http().login(own.token)), "200");
}

void RandomUser::judge(const std::string& what, const std::string& got, const std::string& expected)
{
    if (got == expected) return;
    agrees = false;
    ADD_FAILURE() << own.name << ": " << what << " is " << got.substr(0, 400) << ", not "
                  << expected.substr(0, 400);
}

void RandomUser::learn(const std::string& what, const std::string& got, std::string& expected)
{
    if (expected.empty()) expected = got;
    judge(what, got, expected);
}

void RandomUser::content(const Draw& d, const RestReply& reply)
{
    judge("content of " + d.path, reply.body, d.of.tree.items[d.path].shown().content);
}

/// The reply names the version now current: a new one by a new id, an old one by its own.
void RandomUser::version(const Draw& d, const RestReply& reply)
{
    const auto document = parseXml(reply.body);
    auto& shown = d.of.tree.items[d.path].shown();
    judge("label of " + d.path, document.only("VersionLabel"), std::to_string(shown.label));
    learn("version of " + d.path, document.only("VersionId"), shown.id);
}

void RandomUser::listing(const Draw& d, const RestReply& reply)
{
    const auto document = parseXml(reply.body);
    judge("name of " + d.path, document.child("FolderSummary").only("Name"), nameOf(d.path));
    judge("files in " + d.path, namesOf(document.child("Files")), d.of.tree.namesIn(d.path, true));
    judge("folders in " + d.path, namesOf(document.child("Folders")), d.of.tree.namesIn(d.path, false));
    for (const auto& file : document.child("Files").children) {
        const auto shown = d.of.tree.items[join(d.path, file.only("Name"))].shown();
        judge("size in " + d.path, file.only("Size"), std::to_string(shown.content.size()));
        judge("writable in " + d.path, file.only("Writable"), &d.of == &own ? "true" : "false");
    }
}

void RandomUser::attributes(const Draw& d, const RestReply& reply)
{
    const auto document = parseXml(reply.body);
    auto& item = d.of.tree.items[d.path];
    judge("name of " + d.path, document.only("Name"), nameOf(d.path));
    judge("type of " + d.path, document.only("Type"), item.isFile() ? "FILE" : "FOLDER");
    judge("writable of " + d.path, document.only("Writable"), &d.of == &own ? "true" : "false");
    if (item.isFile())
        judge("size of " + d.path, document.only("Size"), std::to_string(item.shown().content.size()));
}

void RandomUser::versions(const Draw& d, const RestReply& reply)
{
    const auto document = parseXml(reply.body);
    const auto listed = document.all("VersionSummary");
    auto& expected = d.of.tree.items[d.path].versions;
    judge("name in versions of " + d.path, document.only("Name"), nameOf(d.path));
    judge("versions of " + d.path, std::to_string(listed.size()), std::to_string(expected.size()));
    for (std::size_t i = 0; agrees && i < listed.size(); ++i) { // the newest first
        auto& version = expected[listed.size() - 1 - i];
        judge("label in " + d.path, listed[i]->only("VersionLabel"), std::to_string(version.label));
        learn("version in " + d.path, listed[i]->only("VersionId"), version.id);
    }
}

void RandomUser::permission(const Draw& d, const RestReply& reply)
{
    learn("id of the grant of " + d.path + " to " + d.subject, parseXml(reply.body).only("PermissionId"),
          d.of.tree.items[d.path].grants[d.subject]);
}

/// Half of the time one that is there, else one that may be there, mostly in a folder that is.
std::string RandomUser::somePath(const TreeModel& tree)
{
    const auto& path =
        std::next(tree.items.begin(), static_cast<std::ptrdiff_t>(below(tree.items.size())))->first;
    if (coin()) return path;
    return join(std::count(path.begin(), path.end(), '/') < maxDepth ? path : "/",
                names[below(names.size())]);
}

Draw RandomUser::draw(Account& of)
{
    const auto path = somePath(of.tree);
    const auto length = below(4) == 0 ? below(100'000) : below(40);
    const auto& item = of.tree.items.find(path);
    std::vector<std::string> grants = {"none"};
    for (const auto& each : of.tree.items)
        for (const auto& [subject, id] : each.second.grants)
            grants.push_back(id);
    auto* subject = &own;
    while (subject == &own)
        subject = &accounts[below(accounts.size())];
    return {.of = of,
            .path = path,
            .item = {&of != &own || coin() ? of.name : "", path},
            .target = {coin() ? own.name : "", &of == &own ? somePath(of.tree) : "/stolen"},
            .mode = modes[below(modes.size())],
            .content = std::string(length, static_cast<char>('a' + below(26))) + std::to_string(++counter),
            .subject = subject->name,
            .grant = grants[below(grants.size())],
            .version = item == of.tree.items.end() || !item->second.isFile()
                           ? 0
                           : below(item->second.versions.size()),
            .first = coin(),
            .second = coin(),
            .third = coin()};
}

ServiceUser& RandomUser::http()
{
    user.moveTo(serverUrls[below(serverUrls.size())]);
    return user;
}

} // namespace tarnd::test
