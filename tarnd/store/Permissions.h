#pragma once

#include "tarnd/store/Caller.h"
#include "tarnd/store/Engine.h"
#include "tarnd/store/ItemPath.h"

#include <string>
#include <vector>

namespace tarnd {

/// One grant, as "Permission" carries it.
struct Permission {
    std::string id;
    std::string path;      ///< of the granted item now, decoded
    std::string bucket;    ///< its owner
    std::string subject;   ///< the user who may read
    std::string operation; ///< always "READ_ONLY"
    std::string status;    ///< "ACTIVE", or "PENDING" until the subject is added as a user
};

/// Who may read what. A grant covers the item and everything below it, and follows the item when it moves.
/// Only the owner grants, revokes and lists. All calls block and may run on any thread.
class Permissions {
public:
    explicit Permissions(Engine engine) : engine(std::move(engine)) {}

    /// Returns the id of the grant; granting the same again returns the same id.
    /// @throws ServiceError notFound, notAllowed for a reader of the item, badRequest for an unknown subject
    /// (unless `allowNonExistingUser`), for a name no user can have, and for the owner as subject
    std::string grant(const Caller& caller, const Location& location, const std::string& subject,
                      bool allowNonExistingUser);

    /// Takes effect at once, also for an upload that is under way.
    /// @throws ServiceError badRequest for an id that is unknown to the caller, notAllowed for the grant's
    /// subject
    void revoke(const Caller& caller, const std::string& permissionId);

    /// All that the caller has granted, by path, then subject.
    std::vector<Permission> list(const Caller& caller);

    /// The grants on exactly this item. @throws ServiceError notFound, notAllowed for a reader of the item
    std::vector<Permission> list(const Caller& caller, const Location& location);

private:
    Engine engine;
};

} // namespace tarnd
