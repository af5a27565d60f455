#pragma once

#include "tarn/foundation/ServiceProviderAPI.h"

#include <memory>

namespace connector::tarn {

struct PublicLinkCreate;
struct PublicLinkList;
struct PublicLinkRevoke;

/// What answers the messages about public links. Handlers are called by `deliver`, on the host's delivery threads.
///
/// @param to       address of the HTTP client to send through
/// @param context  the way there
/// @return a future of the operation's response message
class TARN_API PublicLinksServiceProvider : public ServiceProviderAPI<PublicLinksServiceProvider> {
public:
    virtual Reply handle(std::unique_ptr<PublicLinkCreate>&& request, Address&& to, ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<PublicLinkList>&& request, Address&& to, ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<PublicLinkRevoke>&& request, Address&& to, ContextPtr&& context) = 0;
};

} // namespace connector::tarn
