#pragma once

#include "tarn/foundation/EndpointTracking.h"
#include "tarn/session/SessionMessages.h"

#include <mutex>

namespace connector::tarn {

/// Answers the session messages over HTTP.
///
/// Follows the endpoint in the configuration; the endpoint may change while requests are being handled.
/// Replies are read on the thread that completes the HTTP exchange and touch no state of the provider.
/// Every failure arrives through the future, also an endpoint that is not a URL (Poco::SyntaxException).
class TARN_API TarnSessionClientServiceProvider : public TarnSessionServiceProvider {
public:
    /// @param configuration  may be null: the endpoint then never changes
    /// @param endpoint       base URL of the service until the configuration says otherwise
    /// @throws whatever the configuration throws
    TarnSessionClientServiceProvider(std::shared_ptr<configuration::Configuration> configuration,
                                     const std::string& endpoint);

    /// A copy of the current endpoint.
    std::string getEndpoint() const;

    Reply handle(std::unique_ptr<Login>&& request, Address&& to, ContextPtr&& context) override;
    Reply handle(std::unique_ptr<Logout>&& request, Address&& to, ContextPtr&& context) override;
    Reply handle(std::unique_ptr<Ping>&& request, Address&& to, ContextPtr&& context) override;

private:
    mutable std::mutex mutex; ///< guards `endpoint`
    std::string endpoint;
    std::shared_ptr<configuration::Configuration> configuration;
    Cancellers cancellers;
};

} // namespace connector::tarn
