#pragma once

#include "tarn/protocol/ServiceClient.h"
#include "tarn/publiclinks/PublicLinks.h"
#include "tarn/session/TarnSession.h"

namespace connector::tarn {

/// PublicLinks through a message framework, within a session.
///
/// May be used from any thread, with any number of requests in flight. Before sending, each operation fills
/// an empty bucket with the session's user and overwrites session id, client string and client type with the
/// session's. Without a request, a session or a connector it fails with "Null request, session, or context".
class TARN_API PublicLinksClient : public PublicLinks, public std::enable_shared_from_this<PublicLinks> {
public:
    /// @param session    shared with the application; read at each call
    /// @param connector  asked for its context once and not kept; null: every operation fails
    /// @param address    of the provider of public links
    PublicLinksClient(std::shared_ptr<TarnSession> session, std::shared_ptr<Connector> connector,
                      const Address& address);

    ReplyTo<PublicLinkCreate> createLink(std::unique_ptr<PublicLinkCreate>&& request) override;
    ReplyTo<PublicLinkList> listLinks(std::unique_ptr<PublicLinkList>&& request) override;
    /// An empty id is sent as it is, and the service refuses it.
    ReplyTo<PublicLinkRevoke> revokeLink(std::unique_ptr<PublicLinkRevoke>&& request) override;

    std::shared_ptr<PublicLinks> getPtr() override { return shared_from_this(); }

private:
    ServiceClient<TarnSession> client;
};

} // namespace connector::tarn
