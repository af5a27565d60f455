#pragma once

#include "tarn/protocol/ServiceClient.h"
#include "tarn/session/TarnSession.h"
#include "tarn/versioning/Versioning.h"

namespace connector::tarn {

/// Versioning through a message framework, within a session.
///
/// May be used from any thread, with any number of requests in flight. Before sending, each operation fills
/// an empty bucket with the session's user and overwrites session id, client string and client type with the
/// session's. Without a request, a session or a connector it fails with "Null request, session, or context".
class TARN_API VersioningClient : public Versioning, public std::enable_shared_from_this<Versioning> {
public:
    /// @param session    shared with the application; read at each call
    /// @param connector  asked for its context once and not kept; null: every operation fails
    /// @param address    of the versioning service provider
    VersioningClient(std::shared_ptr<TarnSession> session, std::shared_ptr<Connector> connector,
                     const Address& address);

    ReplyTo<VersionList> listVersions(std::unique_ptr<VersionList>&& request) override;
    /// An empty version id is sent as it is, and the service refuses it.
    ReplyTo<VersionRestore> restoreVersion(std::unique_ptr<VersionRestore>&& request) override;

    std::shared_ptr<Versioning> getPtr() override { return shared_from_this(); }

private:
    ServiceClient<TarnSession> client;
};

} // namespace connector::tarn
