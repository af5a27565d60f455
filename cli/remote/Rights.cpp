#include "cli/remote/Rights.h"

#include "cli/remote/Grants.h"
#include "cli/remote/Requests.h"

#include <algorithm>

namespace tarncli {

using namespace connector::tarn;

namespace {

/// Whether what holds for the item at `path` holds for `item`, too.
bool covers(const std::string& path, const RemotePath& item)
{
    return path == "/" || path == item.path || item.path.starts_with(path + "/");
}

} // namespace

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

std::string rightsSentence(ConnectionOptions options, Output& out, const std::string& item)
{
    constexpr unsigned patience = 3; // seconds: the refusal itself is what people wait for
    try {
        const auto where = RemotePath::ofStored(item);
        options.timeout = patience;
        options.retries = 0;
        options.log = {};
        Connection connection(options, out);
        connection.resume();
        // To what is one's own one has every right: then it is something else.
        if (where.bucket.empty() || where.bucket == connection.user()) return {};
        const auto right = rightTo(connection, where);
        return escaped(right.user) + " may " + right.may + ": " + escaped(right.because) + ".";
    } catch (const std::exception&) { // the refusal was told already
        return {};
    }
}

} // namespace tarncli
