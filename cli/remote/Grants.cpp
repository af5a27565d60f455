#include "cli/remote/Grants.h"

#include "cli/remote/Answer.h"
#include "cli/remote/Requests.h"

namespace tarncli {

using namespace connector::tarn;

std::vector<Permission> listGrants(Connection& connection, const std::string& path)
{
    const auto list = [&](const RemotePath& item) {
        const auto answer = connection.call(
            [&] { return connection.access().listPermissions(requestFor<PermissionList>(item)); });
        for (const auto& grant : answer->permissions)
            requireTold(!grant.permissionId.empty() && !grant.subjectName.empty(),
                        "the id or the user of a grant");
        return answer->permissions;
    };
    if (path.empty()) return list({});
    const auto item = RemotePath::parse(path); // sent in the query, where any name can stand
    return naming(item, [&] { return list(item); });
}

} // namespace tarncli
