#include "tarn/accesscontrol/AccessControlClient.h"

namespace connector::tarn {

AccessControlClient::AccessControlClient(std::shared_ptr<TarnSession> session,
                                         std::shared_ptr<Connector> connector, const Address& address)
    : client(std::move(session), connector, address)
{
}

Future<std::unique_ptr<PermissionGrantResponse>>
AccessControlClient::grantPermission(std::unique_ptr<PermissionGrant>&& request)
{
    return client.send<PermissionGrantResponse>(std::move(request), &PermissionGrant::bucket);
}

Future<std::unique_ptr<PermissionRevokeResponse>>
AccessControlClient::revokePermission(std::unique_ptr<PermissionRevoke>&& request)
{
    return client.send<PermissionRevokeResponse>(std::move(request));
}

Future<std::unique_ptr<PermissionListResponse>>
AccessControlClient::listPermissions(std::unique_ptr<PermissionList>&& request)
{
    return client.send<PermissionListResponse>(std::move(request), &PermissionList::bucket);
}

} // namespace connector::tarn
