#include "cli/remote/Answer.h"
#include "cli/remote/Grants.h"
#include "cli/remote/Requests.h"
#include "cli/terminal/Table.h"
#include "cli/terminal/Text.h"
#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;
using nlohmann::json;

/// Who may do what, and why.
struct Right {
    std::string user;
    std::string may;
    std::string because;
    std::string grantId = {}; ///< empty: it needs no grant
};

/// Whether what holds for the item at `path` holds for `item`, too.
bool covers(const std::string& path, const RemotePath& item)
{
    return path == "/" || path == item.path || item.path.starts_with(path + "/");
}

/// Of an item of one's own all is known.
std::vector<Right> rightsToOwn(Connection& connection, const RemotePath& item)
{
    std::vector<Right> rights{
        {connection.user(), "read, change and share it", "it is in this user's own storage"}};
    for (const auto& grant : listGrants(connection, "")) {
        const auto path = toUtf8(grant.path);
        if (!covers(path, item)) continue;
        const bool waits = grant.status != "ACTIVE" && !grant.status.empty();
        rights.push_back({toUtf8(grant.subjectName), waits ? "read it once this user exists" : "read it",
                          "grant " + grant.permissionId + " on " + path, grant.permissionId});
    }
    return rights;
}

/// Of another's item one knows what one may do there oneself, and what was shared for that.
Right rightTo(Connection& connection, const RemotePath& item)
{
    const auto attributes = attributesOf(connection, item);
    const auto response = connection.call(
        [&] { return connection.files().listSharedContent(std::make_unique<SharedContentList>()); });
    std::string shared;
    const auto look = [&](const auto& each) {
        if (toUtf8(each.bucket) == item.bucket && covers(toUtf8(each.path), item)) shared = toUtf8(each.path);
    };
    for (const auto& one : response->sharedContent) {
        std::ranges::for_each(one.sharedFolders, look);
        std::ranges::for_each(one.sharedFiles, look);
    }
    return {connection.user(), attributes.writable ? "read and change it" : "read it",
            shared.empty() ? "the service says so" : item.bucket + " shares " + shared};
}

/// That of `user` alone, or that there is none.
std::vector<Right> onlyOf(std::vector<Right> rights, const std::string& user, const RemotePath& item)
{
    std::erase_if(rights, [&](const Right& right) { return right.user != user; });
    if (rights.empty())
        rights.push_back({user, "not see it",
                          "no grant covers it; `tarn grant " + item.text() + " " + user +
                              "` would let this user read it"});
    return rights;
}

struct Options {
    std::string path;
    std::string user;
};

void explainRights(const Invocation& invocation, const Options& options)
{
    const auto item = RemotePath::parse(options.path);
    auto connection = invocation.connect();
    const auto me = connection.user();
    const bool isOwn = item.bucket.empty() || item.bucket == me;
    if (!isOwn && !options.user.empty() && options.user != me)
        throw usageError("Only " + escaped(item.bucket) +
                         " knows what others may do there; leave out the USER.");
    std::vector<Right> rights;
    if (isOwn) {
        attributesOf(connection, item); // there is no right to what is not there
        rights = rightsToOwn(connection, item);
        if (!options.user.empty()) rights = onlyOf(std::move(rights), options.user, item);
    } else {
        rights = {rightTo(connection, item)};
    }
    using enum Table::Align;
    Table table({left, left, left}, {"USER", "MAY", "BECAUSE"});
    auto documents = json::array();
    for (const auto& [user, may, because, grantId] : rights) {
        table.add({user, may, because});
        json document{{"user", user}, {"may", may}, {"because", because}};
        if (!grantId.empty()) document["grant"] = grantId;
        documents.push_back(document);
    }
    invocation.out.result(table.text(), {{"path", item.text()}, {"rights", documents}});
}

} // namespace

Verb explain()
{
    const auto options = std::make_shared<Options>();
    return {.name = "explain",
            .summary = "Tell who may do what with an item, and what lets them",
            .examples = "  tarn explain /docs/a.txt\n"
                        "  tarn explain /docs bob\n"
                        "  tarn explain alice:/docs",
            .takes = {{"PATH", &options->path, "File or folder", {.required = true, .words = Words::remote}},
                      {"USER", &options->user, "Only what this user may do"}},
            .run = [options](const Invocation& invocation) { explainRights(invocation, *options); }};
}

} // namespace tarncli::verbs
