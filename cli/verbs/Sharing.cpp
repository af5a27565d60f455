#include "cli/remote/Requests.h"
#include "cli/terminal/Quantities.h"
#include "cli/terminal/Table.h"
#include "cli/verbs/Verbs.h"
#include "tarn/accesscontrol/PermissionMessages.h"

#include <nlohmann/json.hpp>

namespace tarncli {

namespace {

using namespace connector::tarn;
using nlohmann::json;

/// The grants on an item, or all of the user's; their paths travel as query values, where every name is safe.
std::vector<Permission> listGrants(Connection& connection, const std::string& path)
{
    const auto list = [&](const RemotePath& item) {
        return connection
            .call([&] { return connection.access().listPermissions(requestFor<PermissionList>(item)); })
            ->permissions;
    };
    if (path.empty()) return list({});
    const auto item = RemotePath::parse(path);
    return naming(item, [&] { return list(item); });
}

std::string findGrant(Connection& connection, const std::string& path, const std::string& user)
{
    for (const auto& grant : listGrants(connection, path))
        if (toUtf8(grant.subjectName) == user) return grant.permissionId;
    throw Failure(ExitCode::notFound, RemotePath::parse(path).quoted() + " is not granted to \"" +
                                          escaped(user) + "\"; `tarn grants` lists what is.");
}

/// Where a shared item is, as it is written on the command line; a folder with '/' at the end.
std::string place(const std::u16string& bucket, const std::u16string& path)
{
    return RemotePath{toUtf8(bucket), toUtf8(path)}.text();
}

std::string folderPlace(const SharedFolderSummary& folder)
{
    const auto text = place(folder.bucket, folder.path);
    return text.ends_with('/') ? text : text + "/";
}

template <class Shared>
json sharedJson(const Shared& item)
{
    auto document = toJson(item);
    document["path"] = toUtf8(item.path);
    document["bucket"] = toUtf8(item.bucket);
    return document;
}

} // namespace

namespace verbs {

void grant(const Invocation& invocation, const GrantOptions& options)
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
    invocation.out.message(escaped(options.user) + " may read " + item.quoted() + ".");
    invocation.out.result(escaped(granted->permissionId) + "\n",
                          {{"id", granted->permissionId}, {"path", item.text()}, {"user", options.user}});
}

void revoke(const Invocation& invocation, const RevokeOptions& options)
{
    const bool byPath = options.what.size() == 2;
    const auto& first = options.what.front();
    if (byPath) RemotePath::parse(first);
    if (!byPath && first.find_first_of("/?#") != std::string::npos)
        throw usageError("\"" + escaped(first) +
                         "\" is no id of a grant; use `tarn revoke ID` or `tarn revoke PATH USER`.");
    auto connection = invocation.connect();
    const auto id = byPath ? findGrant(connection, first, options.what.back()) : first;
    connection.call([&] {
        auto request = std::make_unique<PermissionRevoke>();
        request->permissionId = id;
        return connection.access().revokePermission(std::move(request));
    });
    invocation.out.detail("Revoked " + escaped(id) + ".");
    invocation.out.result("", {{"revoked", id}});
}

void grants(const Invocation& invocation, const PathOptions& options)
{
    if (!options.path.empty()) RemotePath::parse(options.path);
    auto connection = invocation.connect();
    using enum Table::Align;
    Table table({left, left, left, left, left}, {"ID", "USER", "ACCESS", "STATUS", "PATH"});
    auto documents = json::array();
    for (const auto& grant : listGrants(connection, options.path)) {
        const auto user = toUtf8(grant.subjectName);
        const auto path = toUtf8(grant.path);
        table.add({grant.permissionId, user, grant.operation, grant.status, path});
        documents.push_back({{"id", grant.permissionId},
                             {"user", user},
                             {"operation", grant.operation},
                             {"status", grant.status},
                             {"path", path},
                             {"bucket", toUtf8(grant.bucket)}});
    }
    invocation.out.result(table.text(), {{"grants", documents}});
}

void shared(const Invocation& invocation)
{
    auto connection = invocation.connect();
    const auto response = connection.call(
        [&] { return connection.files().listSharedContent(std::make_unique<SharedContentList>()); });
    using enum Table::Align;
    Table table({left, right, left, left}, {"USER", "SIZE", "MODIFIED", "PATH"});
    auto documents = json::array();
    for (const auto& one : response->sharedContent) {
        const auto user = toUtf8(one.sharedByUserId);
        json document{{"user", user}, {"folders", json::array()}, {"files", json::array()}};
        for (const auto& folder : one.sharedFolders) {
            table.add({user, "-", humanTime(folder.lastModified), folderPlace(folder)});
            document["folders"].push_back(sharedJson(folder));
        }
        for (const auto& file : one.sharedFiles) {
            table.add(
                {user, humanSize(file.size), humanTime(file.lastModified), place(file.bucket, file.path)});
            document["files"].push_back(sharedJson(file));
        }
        documents.push_back(document);
    }
    invocation.out.result(table.text(), {{"shared", documents}});
}

void link(const Invocation& invocation, const PathOptions& options)
{
    const auto item = addressable(options.path);
    auto connection = invocation.connect();
    const auto response = naming(item, [&] {
        return connection.call(
            [&] { return connection.files().getPublicAccessUrl(requestFor<PublicAccessUrlGet>(item)); });
    });
    const auto url = toUtf8(response->url);
    if (url.empty()) throw Failure(ExitCode::failure, "The service gave no link for " + item.quoted() + ".");
    invocation.out.result(escaped(url) + "\n", {{"path", item.text()}, {"url", url}});
}

} // namespace verbs

} // namespace tarncli
