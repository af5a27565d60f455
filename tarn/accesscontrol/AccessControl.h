#pragma once

#include "tarn/accesscontrol/PermissionMessages.h"
#include "tarn/protocol/ReplyTo.h"

namespace connector::tarn {

/// Who may read what of the session's user.
///
/// Each operation takes the request over, sends it, and returns at once. Its future is resolved on one of the
/// host's delivery threads with the response, or with the failure that the request's own comment tells. Bad
/// arguments come back as a future that has failed already, and the request then stays with the caller.
class TARN_API AccessControl {
public:
    virtual ~AccessControl() = default;

    virtual ReplyTo<PermissionGrant> grantPermission(std::unique_ptr<PermissionGrant>&& request) = 0;
    virtual ReplyTo<PermissionRevoke> revokePermission(std::unique_ptr<PermissionRevoke>&& request) = 0;
    virtual ReplyTo<PermissionList> listPermissions(std::unique_ptr<PermissionList>&& request) = 0;

    /// @throws std::bad_weak_ptr when no shared_ptr owns the object
    virtual std::shared_ptr<AccessControl> getPtr() = 0;
};

} // namespace connector::tarn
