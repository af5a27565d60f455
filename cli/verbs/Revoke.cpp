#include "cli/remote/Grants.h"
#include "cli/remote/Recorded.h"
#include "cli/remote/Requests.h"
#include "cli/verbs/Verb.h"
#include "tarn/accesscontrol/PermissionMessages.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using namespace connector::tarn;

Permission findGrant(Connection& connection, const std::string& path, const std::string& user)
{
    for (const auto& grant : listGrants(connection, path))
        if (toUtf8(grant.subjectName) == user) return grant;
    throw Failure(ExitCode::notFound, RemotePath::parse(path).quoted() + " is not granted to \"" +
                                          escaped(user) + "\"; `tarn grants` lists what is.");
}

/// What it was, for those who want it again; the service tells whether there is one.
Permission findGrant(Connection& connection, const std::string& id)
{
    for (const auto& grant : listGrants(connection, ""))
        if (grant.permissionId == id) return grant;
    Permission unknown;
    unknown.permissionId = id;
    return unknown;
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
    const auto grant = byPath ? findGrant(connection, first, what.back()) : findGrant(connection, first);
    const auto& id = grant.permissionId;
    const auto send = [&] {
        connection.call([&] {
            auto request = std::make_unique<PermissionRevoke>();
            request->permissionId = id;
            return connection.access().revokePermission(std::move(request));
        });
        return std::string();
    };
    Change change{Change::Kind::revoke, toUtf8(grant.path), toUtf8(grant.subjectName), id};
    change.loses = grant.status == "PENDING";
    change.path.empty() ? void(send()) : recorded(connection, change, send);
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
