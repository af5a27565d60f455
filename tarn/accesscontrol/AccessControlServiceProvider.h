#pragma once

#include "tarn/foundation/ServiceProviderAPI.h"

#include <memory>

namespace connector::tarn {

struct PermissionGrant;
struct PermissionRevoke;
struct PermissionList;

/// What answers the permission messages. Handlers are called by `deliver`, on the host's delivery threads.
///
/// @param to       address of the HTTP client to send through
/// @param context  the way there
/// @return a future of the operation's response message
class TARN_API AccessControlServiceProvider : public ServiceProviderAPI<AccessControlServiceProvider> {
public:
    virtual Reply handle(std::unique_ptr<PermissionGrant>&& request, Address&& to, ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<PermissionRevoke>&& request, Address&& to, ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<PermissionList>&& request, Address&& to, ContextPtr&& context) = 0;
};

} // namespace connector::tarn
