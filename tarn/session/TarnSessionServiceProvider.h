#pragma once

#include "tarn/foundation/ServiceProviderAPI.h"

#include <memory>

namespace connector::tarn {

struct Login;
struct Logout;
struct Ping;

/// What answers the session messages. Handlers are called by `deliver`, on the host's delivery threads.
///
/// @param to       address of the HTTP client to send through
/// @param context  the way there
/// @return a future of the operation's response message
class TARN_API TarnSessionServiceProvider : public ServiceProviderAPI<TarnSessionServiceProvider> {
public:
    virtual Reply handle(std::unique_ptr<Login>&& request, Address&& to, ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<Logout>&& request, Address&& to, ContextPtr&& context) = 0;
    virtual Reply handle(std::unique_ptr<Ping>&& request, Address&& to, ContextPtr&& context) = 0;
};

} // namespace connector::tarn
