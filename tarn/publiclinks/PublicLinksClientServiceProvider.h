#pragma once

#include "tarn/foundation/EndpointTracking.h"
#include "tarn/publiclinks/PublicLinksServiceProvider.h"

namespace connector::tarn {

/// Answers the messages about public links over HTTP, one HTTP request each.
///
/// Follows the endpoint in the configuration. The endpoint is written and read without a lock: let it settle
/// before requests are made. Replies are read on the thread that completes the HTTP exchange and touch no
/// state of the provider. Every failure arrives through the future, also what keeps a request
/// from being built: malformed UTF-16 (std::invalid_argument), an endpoint that is not a URL
/// (Poco::SyntaxException).
class TARN_API PublicLinksClientServiceProvider : public PublicLinksServiceProvider {
public:
    /// @param configuration  may be null: the endpoint then never changes
    /// @param endpoint       base URL of the service until the configuration says otherwise
    /// @throws whatever the configuration throws
    PublicLinksClientServiceProvider(std::shared_ptr<configuration::Configuration> configuration,
                                     const std::string& endpoint);

    Reply handle(std::unique_ptr<PublicLinkCreate>&& request, Address&& to, ContextPtr&& context) override;
    Reply handle(std::unique_ptr<PublicLinkList>&& request, Address&& to, ContextPtr&& context) override;
    Reply handle(std::unique_ptr<PublicLinkRevoke>&& request, Address&& to, ContextPtr&& context) override;

private:
    std::string endpoint;
    std::shared_ptr<configuration::Configuration> configuration;
    Cancellers cancellers;
};

} // namespace connector::tarn
