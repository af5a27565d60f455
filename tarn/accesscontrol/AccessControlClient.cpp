#include "tarn/accesscontrol/AccessControlClient.h"

namespace connector::tarn {

AccessControlClient::AccessControlClient(std::shared_ptr<TarnSession> session,
                                         std::shared_ptr<Connector> connector, const Address& address)
    : client(std::move(session), connector, address)
{
}

ReplyTo<PermissionGrant> AccessControlClient::grantPermission(std::unique_ptr<PermissionGrant>&& request)
{
    return client.send(std::move(request), &PermissionGrant::bucket);
}

ReplyTo<PermissionRevoke> AccessControlClient::revokePermission(std::unique_ptr<PermissionRevoke>&& request)
{
    return client.send(std::move(request));
}

ReplyTo<PermissionList> AccessControlClient::listPermissions(std::unique_ptr<PermissionList>&& request)
{
    return client.send(std::move(request), &PermissionList::bucket);
}

} // namespace connector::tarn
