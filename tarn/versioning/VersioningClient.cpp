#include "tarn/versioning/VersioningClient.h"

namespace connector::tarn {

VersioningClient::VersioningClient(std::shared_ptr<TarnSession> session, std::shared_ptr<Connector> connector,
                                   const Address& address)
    : client(std::move(session), connector, address)
{
}

Future<std::unique_ptr<VersionListResponse>>
VersioningClient::listVersions(std::unique_ptr<VersionList>&& request)
{
    return client.send<VersionListResponse>(std::move(request), &VersionList::bucket);
}

Future<std::unique_ptr<VersionRestoreResponse>>
VersioningClient::restoreVersion(std::unique_ptr<VersionRestore>&& request)
{
    return client.send<VersionRestoreResponse>(std::move(request), &VersionRestore::bucket);
}

} // namespace connector::tarn
