#pragma once

#include "tarn/accesscontrol/AccessControlServiceProvider.h"
#include "tarn/accesscontrol/Permission.h"
#include "tarn/foundation/ServiceMessage.h"
#include "tarn/protocol/SessionRequest.h"

#include <cstdint>
#include <string>
#include <vector>

/// Operations on permissions.
///
/// `path` is UTF-16, '/'-separated and begins with '/'; `bucket` is the name of the user whose storage is
/// meant. Left empty, AccessControlClient fills in the session's user. Both, and `subject`, travel as query values,
/// so '?' and '#' are safe in them.
///
/// Every operation fails with "File not found." (404), with the service's own sentence, with "Unknown error."
/// when the service gives none, with "TARN error: " and the body when a reply is not XML, an empty one
/// included, or with the transport's failure. Malformed UTF-16 fails it with
/// std::invalid_argument "The text is not well-formed UTF-16.", an endpoint that is not a URL with
/// Poco::SyntaxException.
namespace connector::tarn {

/// Lets another user read a file, or a folder and all below it.
///
/// Wire   PUT /service/v1/permissions; "path", "bucket" and "subject", also when empty,
///        "operation" = "READ_ONLY", "allowNonExistingUser"
/// Fails  when there is no such user, unless `allowNonExistingUser`
struct TARN_API PermissionGrant : SessionRequest, MessageAPI<PermissionGrant, AccessControlServiceProvider> {
    using Response = struct PermissionGrantResponse;

    std::u16string path;
    std::u16string bucket;
    std::u16string subject;            ///< the user to grant to
    std::uint32_t reserved = 0;        ///< neither read nor sent
    bool allowNonExistingUser = false; ///< the grant then waits until that user exists
};

struct TARN_API PermissionGrantResponse : Message {
    std::string permissionId; ///< "PermissionId"; empty when the reply has not exactly one
};

/// Takes a grant back.
///
/// Wire   DELETE /service/v1/permissions/{permissionId}; an empty id adds nothing to the path, and one that begins
///        with '/' is appended as it is
struct TARN_API PermissionRevoke : SessionRequest,
                                   MessageAPI<PermissionRevoke, AccessControlServiceProvider> {
    using Response = struct PermissionRevokeResponse;

    std::string permissionId; ///< from the grant or a list; a '?' or '#' in it would cut it off there
};

struct TARN_API PermissionRevokeResponse : Message {};

/// Lists the grants on an item, or all that the user has made.
///
/// Wire   GET /service/v1/permissions; "path" and "bucket" only when `path` is not empty
struct TARN_API PermissionList : SessionRequest, MessageAPI<PermissionList, AccessControlServiceProvider> {
    using Response = struct PermissionListResponse;

    std::u16string path; ///< empty: all grants of the session's user
    std::u16string bucket;
};

struct TARN_API PermissionListResponse : Message {
    std::vector<Permission> permissions; ///< every element "Permission", in document order
};

} // namespace connector::tarn
