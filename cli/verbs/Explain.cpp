#include "cli/remote/Requests.h"
#include "cli/remote/Rights.h"
#include "cli/terminal/Table.h"
#include "cli/terminal/Text.h"
#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;
using nlohmann::json;

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
    Table table({left, left, prose}, {"USER", "MAY", "BECAUSE"});
    auto documents = json::array();
    for (const auto& [user, may, because, grantId] : rights) {
        table.add({user, may, because});
        json document{{"user", user}, {"may", may}, {"because", because}};
        if (!grantId.empty()) document["grant"] = grantId;
        documents.push_back(document);
    }
    invocation.out.result(table.text(invocation.out.columns()),
                          {{"path", item.text()}, {"rights", documents}});
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
