#include "cli/remote/Answer.h"
#include "cli/remote/Grants.h"
#include "cli/remote/Recorded.h"
#include "cli/remote/Requests.h"
#include "cli/verbs/Verb.h"
#include "tarn/accesscontrol/PermissionMessages.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;

struct Options {
    std::string path;
    std::string user;
    bool pending = false;
};

void letRead(const Invocation& invocation, const Options& options)
{
    const auto item = RemotePath::parse(options.path);
    auto connection = invocation.connect();
    std::string id;
    const auto send = [&] {
        id = connection
                 .call([&] {
                     auto request = requestFor<PermissionGrant>(item);
                     request->subject = toUtf16(options.user);
                     request->allowNonExistingUser = options.pending;
                     return connection.access().grantPermission(std::move(request));
                 })
                 ->permissionId;
        requireConfirmed(!id.empty(), "the id of the grant");
        return id;
    };
    // What was granted before stays so when this is undone.
    const auto before = listGrants(connection, options.path);
    const auto isHis = [&](const Permission& grant) { return toUtf8(grant.subjectName) == options.user; };
    naming(item, [&] {
        if (std::ranges::any_of(before, isHis))
            send();
        else
            recorded(connection, {Change::Kind::grant, item.stored(), options.user}, send);
    });
    invocation.out.message(escaped(options.user) + " may read " + item.quoted() + ".");
    invocation.out.result(escaped(id) + "\n", {{"id", id}, {"path", item.text()}, {"user", options.user}});
}

} // namespace

Verb grant()
{
    const auto options = std::make_shared<Options>();
    return {.name = "grant",
            .summary = "Let another user read a file, or a folder and all below it",
            .examples = "  tarn grant /docs bob\n"
                        "  tarn grant --pending /docs carol",
            .takes = {{"PATH", &options->path, "File or folder", {.required = true}},
                      {"USER", &options->user, "Who may read it", {.required = true}},
                      {"--pending", &options->pending, "Also for a user who does not exist yet"}},
            .run = [options](const Invocation& invocation) { letRead(invocation, *options); }};
}

} // namespace tarncli::verbs
