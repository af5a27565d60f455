#include "tarnhost/TarnHost.h"

#include "tarn/accesscontrol/AccessControlClient.h"
#include "tarn/accesscontrol/AccessControlClientServiceProvider.h"
#include "tarn/fileaccess/FileAccessClient.h"
#include "tarn/fileaccess/FileAccessClientServiceProvider.h"
#include "tarn/foundation/EndpointTracking.h"
#include "tarn/foundation/FutureWatch.h"
#include "tarn/publiclinks/PublicLinksClient.h"
#include "tarn/publiclinks/PublicLinksClientServiceProvider.h"
#include "tarn/session/TarnSessionClient.h"
#include "tarn/session/TarnSessionClientServiceProvider.h"
#include "tarn/transfer/FileTransferClient.h"
#include "tarn/transfer/FileTransferClientServiceProvider.h"
#include "tarn/versioning/VersioningClient.h"
#include "tarn/versioning/VersioningClientServiceProvider.h"
#include "tarnhost/ConfigurationStore.h"
#include "tarnhost/DeliveryThreads.h"
#include "tarnhost/HostErrors.h"
#include "tarnhost/RequestObserver.h"
#include "tarnhost/Router.h"
#include "tarnhost/detail/UrlParts.h"

#include <optional>
#include <stdexcept>
#include <system_error>
#include <thread>
#include <utility>

namespace connector::host {
namespace {

/// Tells the observers what nobody else has heard of, on a thread of theirs.
FutureWatch::Ears earsOf(const std::shared_ptr<DeliveryThreads>& threads,
                         const std::vector<std::shared_ptr<RequestObserver>>& observers)
{
    return {.unobserved = [threads, observers](const std::exception_ptr& failure) {
        threads->post([observers, failure] {
            for (const auto& observer : observers) {
                try {
                    observer->unobserved(failure);
                } catch (...) { // as what they throw about a request
                }
            }
        });
    }};
}

[[noreturn]] void refuseEndpoint(const std::string& reason)
{
    throw std::invalid_argument(errors::badEndpoint(reason));
}

detail::UrlParts partsOf(const std::string& endpoint)
{
    try {
        return detail::UrlParts(endpoint);
    } catch (const std::invalid_argument& fault) {
        refuseEndpoint(fault.what());
    }
}

/// The endpoint as requests can be appended to it.
std::string checkedEndpoint(std::string endpoint)
{
    if (endpoint.empty()) refuseEndpoint("it is empty.");
    const detail::UrlParts url = partsOf(endpoint);
    if (url.hasUser) refuseEndpoint("it holds a user name or password.");
    if (url.hasQueryOrFragment) refuseEndpoint("it holds a query or a fragment.");
    if (url.host.starts_with('[')) refuseEndpoint("the host is an IPv6 literal; use a host name.");
    while (endpoint.ends_with('/'))
        endpoint.pop_back();
    return endpoint;
}

} // namespace

/// Declared in the order of construction: what stands below may use what stands above.
struct TarnHost::Parts {
    explicit Parts(const Options& options);

    template <class Provider>
    void add(const Address& address, const std::string& endpoint, Delivery delivery = Delivery::atOnce)
    {
        router->registerProvider(address, std::make_shared<Provider>(configuration, endpoint),
                                 Addresses::http(), delivery);
    }

    std::shared_ptr<DeliveryThreads> threads;
    std::shared_ptr<ConfigurationStore> configuration;
    std::shared_ptr<Router> router;
    std::shared_ptr<HttpClient> http;
    std::shared_ptr<tarn::TarnSession> session;
    std::shared_ptr<tarn::FileAccess> fileAccess;
    std::shared_ptr<tarn::AccessControl> accessControl;
    std::shared_ptr<tarn::Versioning> versioning;
    std::shared_ptr<tarn::FileTransfer> fileTransfer;
    std::shared_ptr<tarn::PublicLinks> publicLinks;
    std::optional<FutureWatch> watch; ///< where there are observers
};

TarnHost::Parts::Parts(const Options& options)
    : threads(std::make_shared<DeliveryThreads>(options.threads))
    , configuration(std::make_shared<ConfigurationStore>())
    , router(std::make_shared<Router>(threads))
    , http(std::make_shared<HttpClient>(threads, options.http))
    , session(std::make_shared<tarn::TarnSessionClient>(router, Addresses::session(), options.clientString,
                                                        options.clientType, options.locale))
    , fileAccess(std::make_shared<tarn::FileAccessClient>(session, router, Addresses::fileAccess()))
    , accessControl(std::make_shared<tarn::AccessControlClient>(session, router, Addresses::accessControl()))
    , versioning(std::make_shared<tarn::VersioningClient>(session, router, Addresses::versioning()))
    , fileTransfer(std::make_shared<tarn::FileTransferClient>(session, router, Addresses::fileTransfer()))
    , publicLinks(std::make_shared<tarn::PublicLinksClient>(session, router, Addresses::publicLinks()))
{
    const std::string endpoint = checkedEndpoint(options.endpoint);
    router->registerProvider(Addresses::http(), http, Address(), Delivery::atOnce);
    add<tarn::TarnSessionClientServiceProvider>(Addresses::session(), endpoint);
    add<tarn::FileAccessClientServiceProvider>(Addresses::fileAccess(), endpoint);
    add<tarn::AccessControlClientServiceProvider>(Addresses::accessControl(), endpoint);
    add<tarn::VersioningClientServiceProvider>(Addresses::versioning(), endpoint);
    // Its continuation calls the application's subscriber.
    add<tarn::FileTransferClientServiceProvider>(Addresses::fileTransfer(), endpoint, Delivery::direct);
    add<tarn::PublicLinksClientServiceProvider>(Addresses::publicLinks(), endpoint);
    if (!options.http.observers.empty()) watch.emplace(earsOf(threads, options.http.observers));
}

TarnHost::TarnHost(Options options) : parts(std::make_shared<Parts>(options)) {}

TarnHost::~TarnHost()
{
    shutDown(parts); // which are there as long as a continuation may ask for them
}

TarnHost::TarnHost(TarnHost&&) noexcept = default;

TarnHost& TarnHost::operator=(TarnHost&& other) noexcept
{
    if (this == &other) return *this;
    shutDown(parts);
    parts = std::move(other.parts);
    return *this;
}

void TarnHost::shutDown(std::shared_ptr<Parts> parts)
{
    if (!parts) return;
    // Closing first: what the last jobs send on is then refused, and the threads come to an end.
    const auto finish = [](const Parts& ending) {
        ending.router->close();
        ending.threads->drain();
    };
    if (!parts->threads->isCurrent()) return finish(*parts);
    // The threads must not end with the frame of one of them.
    auto* const held = new std::shared_ptr<Parts>(std::move(parts));
    try {
        std::thread([finish, held] {
            const std::unique_ptr<std::shared_ptr<Parts>> last(held);
            finish(**held);
        }).detach();
    } catch (const std::system_error&) {
        // Without a thread to wait for the others, these stay for the rest of the process, with nothing to do.
        (*held)->router->close();
    }
}

std::shared_ptr<tarn::TarnSession> TarnHost::session() const
{
    return parts->session;
}

std::shared_ptr<tarn::FileAccess> TarnHost::fileAccess() const
{
    return parts->fileAccess;
}

std::shared_ptr<tarn::AccessControl> TarnHost::accessControl() const
{
    return parts->accessControl;
}

std::shared_ptr<tarn::Versioning> TarnHost::versioning() const
{
    return parts->versioning;
}

std::shared_ptr<tarn::FileTransfer> TarnHost::fileTransfer() const
{
    return parts->fileTransfer;
}

std::shared_ptr<tarn::PublicLinks> TarnHost::publicLinks() const
{
    return parts->publicLinks;
}

std::shared_ptr<Connector> TarnHost::connector() const
{
    return parts->router;
}

std::shared_ptr<ConfigurationStore> TarnHost::configuration() const
{
    return parts->configuration;
}

void TarnHost::setEndpoint(const std::string& url)
{
    parts->configuration->set(tarn::endpointKey, checkedEndpoint(url));
}

void TarnHost::registerProvider(const Address& address, std::shared_ptr<ServiceProvider> provider,
                                const Address& onward)
{
    parts->router->registerProvider(address, std::move(provider), onward);
}

bool TarnHost::unregisterProvider(const Address& address)
{
    return parts->router->unregisterProvider(address);
}

TransferredBytes TarnHost::transferred() const
{
    return parts->http->transferred();
}

} // namespace connector::host
