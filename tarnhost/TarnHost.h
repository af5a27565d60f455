#pragma once

#include "tarn/accesscontrol/AccessControl.h"
#include "tarn/fileaccess/FileAccess.h"
#include "tarn/foundation/CallOptions.h"
#include "tarn/foundation/platform/Connector.h"
#include "tarn/foundation/platform/ServiceProvider.h"
#include "tarn/publiclinks/PublicLinks.h"
#include "tarn/session/TarnSession.h"
#include "tarn/transfer/FileTransfer.h"
#include "tarn/versioning/Versioning.h"
#include "tarnhost/HttpClient.h"
#include "tarnhost/HttpOptions.h"
#include "tarnhost/TransportError.h"

#include <memory>
#include <string>

namespace connector::host {

class ConfigurationStore;

/// Everything the library needs to run in, with the library's providers in it: threads, message router,
/// configuration, HTTP client, one session and the clients over it.
///
///     TarnHost host({.endpoint = "https://files.example.org"});
///     auto login = std::make_unique<tarn::Login>();
///     …
///     host.session()->login(std::move(login)).get();
///     host.fileAccess()->listFolder(std::move(request)).get();
///
/// All futures are resolved on the delivery threads: a continuation may call anything here, but must not
/// block on a future that needs these threads; `get` throws WouldDeadlock there. A request that gets no reply
/// fails with TransportError.
///
/// After fork() the child cannot use a host of its parent, whose threads it does not have: waiting for a reply and
/// destroying it never end there. Leave it alone and make a new one.
class TARN_API TarnHost {
public:
    struct Options {
        std::string endpoint = {}; ///< base URL of the service, http or https; slashes at the end are dropped
        std::string clientString = "tarn host"; ///< application and version, told to the service
        std::string clientType = "desktop";     ///< kind of client, told to the service
        std::string locale = "en_US";           ///< kept by the session
        unsigned threads = 0;                   ///< delivery threads; 0: as many as the machine has cores
        HttpOptions http = {}; ///< time limits, trust, and how often what was interrupted is tried again
    };

    /// Where messages go. `http` is what the library's providers send on to.
    struct Addresses {
        static Address http() { return Address("host.http"); }

        static Address session() { return Address("tarn.session"); }

        static Address fileAccess() { return Address("tarn.fileAccess"); }

        static Address accessControl() { return Address("tarn.accessControl"); }

        static Address versioning() { return Address("tarn.versioning"); }

        static Address fileTransfer() { return Address("tarn.fileTransfer"); }

        static Address publicLinks() { return Address("tarn.publicLinks"); }
    };

    /// Sends nothing yet.
    /// @throws std::invalid_argument "The endpoint must be an http:// or https:// URL: ..." for one with a
    ///   user name, a query, a fragment or an IPv6 literal, which the library's URLs cannot carry
    explicit TarnHost(Options options);

    /// Settles every request in flight, then ends: the router refuses new messages, the providers stop, the
    /// HTTP client fails its exchanges, all continuations run, the threads end, and the providers go, then the
    /// configuration. Every request, queued, in flight or made afterwards, fails with TransportError, phase
    /// shutdown, "The host has been shut down.".
    ///
    /// On a delivery thread, such as inside a continuation, this returns at once and the rest happens on a
    /// thread of its own, since a thread cannot wait for itself; it may then last beyond the end of main(). What other
    /// continuations use then has to be what they hold themselves, such as a client, not the TarnHost, which is gone.
    /// Where there is no thread to be had, the requests are settled all the same, and the idle threads stay.
    ~TarnHost();
    /// One that was moved from has nothing to give any more: it may be assigned to and destroyed.
    TarnHost(TarnHost&&) noexcept;
    /// Ends what this was as the destructor does, and only then is `other`.
    TarnHost& operator=(TarnHost&&) noexcept;

    std::shared_ptr<tarn::TarnSession> session() const;
    std::shared_ptr<tarn::FileAccess> fileAccess() const;
    std::shared_ptr<tarn::AccessControl> accessControl() const;
    std::shared_ptr<tarn::Versioning> versioning() const;
    std::shared_ptr<tarn::FileTransfer> fileTransfer() const;
    std::shared_ptr<tarn::PublicLinks> publicLinks() const;

    /// What further clients and sessions are made with.
    std::shared_ptr<Connector> connector() const;

    /// The store behind `setEndpoint`; tarn::endpointKey is what the library's providers follow.
    std::shared_ptr<ConfigurationStore> configuration() const;

    /// Redirects all later requests. Call it while no request is being sent: the providers of files, access
    /// control and versions read their endpoint without a lock.
    /// @throws std::invalid_argument as the constructor
    void setEndpoint(const std::string& url);

    /// Adds a provider of the application's own; fails as Router::registerProvider does.
    void registerProvider(const Address& address, std::shared_ptr<ServiceProvider> provider,
                          const Address& onward = Addresses::http());

    /// Stops and removes the provider at `address`. @return whether there was one
    bool unregisterProvider(const Address& address);

    /// Body bytes sent and received so far, over all requests: poll it to show progress.
    TransferredBytes transferred() const;

private:
    struct Parts;
    static void shutDown(std::shared_ptr<Parts> parts);

    std::shared_ptr<Parts> parts;
};

} // namespace connector::host
