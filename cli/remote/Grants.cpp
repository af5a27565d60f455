#include "cli/remote/Grants.h"

#include "cli/remote/Requests.h"

namespace tarncli {

using namespace connector::tarn;

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

} // namespace tarncli
