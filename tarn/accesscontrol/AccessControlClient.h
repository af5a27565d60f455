#pragma once

#include "tarn/accesscontrol/AccessControl.h"
#include "tarn/protocol/ServiceClient.h"
#include "tarn/session/TarnSession.h"

namespace connector::tarn {

/// AccessControl through a message framework, within a session.
///
/// May be used from any thread, with any number of requests in flight. Before sending, each operation fills
/// an empty bucket with the session's user and overwrites session id, client string and client type with the
/// session's. Without a request, a session or a connector it fails with "Null request, session, or context".
class TARN_API AccessControlClient : public AccessControl,
                                     public std::enable_shared_from_this<AccessControl> {
public:
    /// @param session    shared with the application; read at each call
    /// @param connector  asked for its context once and not kept; null: every operation fails
    /// @param address    of the access-control service provider
    AccessControlClient(std::shared_ptr<TarnSession> session, std::shared_ptr<Connector> connector,
                        const Address& address);

    ReplyTo<PermissionGrant> grantPermission(std::unique_ptr<PermissionGrant>&& request) override;
    /// An empty permission id is sent as it is, and the service refuses it.
    ReplyTo<PermissionRevoke> revokePermission(std::unique_ptr<PermissionRevoke>&& request) override;
    ReplyTo<PermissionList> listPermissions(std::unique_ptr<PermissionList>&& request) override;

    std::shared_ptr<AccessControl> getPtr() override { return shared_from_this(); }

private:
    ServiceClient<TarnSession> client;
};

} // namespace connector::tarn
