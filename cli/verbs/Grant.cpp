#include "cli/remote/Answer.h"
#include "cli/remote/Requests.h"
#include "cli/verbs/Verb.h"
#include "tarn/accesscontrol/PermissionMessages.h"

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
    const auto granted = naming(item, [&] {
        return connection.call([&] {
            auto request = requestFor<PermissionGrant>(item);
            request->subject = toUtf16(options.user);
            request->allowNonExistingUser = options.pending;
            return connection.access().grantPermission(std::move(request));
        });
    });
    requireConfirmed(!granted->permissionId.empty(), "the id of the grant");
    invocation.out.message(escaped(options.user) + " may read " + item.quoted() + ".");
    invocation.out.result(escaped(granted->permissionId) + "\n",
                          {{"id", granted->permissionId}, {"path", item.text()}, {"user", options.user}});
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
