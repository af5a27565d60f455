#include "tarn/versioning/VersioningClient.h"

namespace connector::tarn {

VersioningClient::VersioningClient(std::shared_ptr<TarnSession> session, std::shared_ptr<Connector> connector,
                                   const Address& address)
    : client(std::move(session), connector, address)
{
}

ReplyTo<VersionList> VersioningClient::listVersions(std::unique_ptr<VersionList>&& request)
{
    return client.send(std::move(request), &VersionList::bucket);
}

ReplyTo<VersionRestore> VersioningClient::restoreVersion(std::unique_ptr<VersionRestore>&& request)
{
    return client.send(std::move(request), &VersionRestore::bucket);
}

} // namespace connector::tarn
