#include "cli/remote/Grants.h"
#include "cli/remote/Requests.h"
#include "cli/verbs/Verb.h"
#include "tarn/accesscontrol/PermissionMessages.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;

std::string findGrant(Connection& connection, const std::string& path, const std::string& user)
{
    for (const auto& grant : listGrants(connection, path))
        if (toUtf8(grant.subjectName) == user) return grant.permissionId;
    throw Failure(ExitCode::notFound, RemotePath::parse(path).quoted() + " is not granted to \"" +
                                          escaped(user) + "\"; `tarn grants` lists what is.");
}

void takeBack(const Invocation& invocation, const std::vector<std::string>& what)
{
    const bool byPath = what.size() == 2;
    const auto& first = what.front();
    if (byPath) RemotePath::parse(first);
    // An id becomes part of the URL, where these would reach another address.
    if (!byPath && first.find_first_of("/?#") != std::string::npos)
        throw usageError("\"" + escaped(first) +
                         "\" is not the id of a grant; use `tarn revoke ID` or `tarn revoke PATH USER`.");
    auto connection = invocation.connect();
    const auto id = byPath ? findGrant(connection, first, what.back()) : first;
    connection.call([&] {
        auto request = std::make_unique<PermissionRevoke>();
        request->permissionId = id;
        return connection.access().revokePermission(std::move(request));
    });
    invocation.out.detail("Revoked " + escaped(id) + ".");
    invocation.out.result("", {{"revoked", id}});
}

} // namespace

Verb revoke()
{
    const auto what = std::make_shared<std::vector<std::string>>();
    return {.name = "revoke",
            .summary = "Take back a grant",
            .examples = "  tarn revoke /docs bob\n"
                        "  tarn revoke 5c1f…",
            .takes = {{"GRANT", what.get(), "ID, or PATH USER", {.required = true, .most = 2}}},
            .run = [what](const Invocation& invocation) { takeBack(invocation, *what); }};
}

} // namespace tarncli::verbs
