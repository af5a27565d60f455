#include "tarn/publiclinks/PublicLinksClient.h"

namespace connector::tarn {

PublicLinksClient::PublicLinksClient(std::shared_ptr<TarnSession> session,
                                     std::shared_ptr<Connector> connector, const Address& address)
    : client(std::move(session), connector, address)
{
}

ReplyTo<PublicLinkCreate> PublicLinksClient::createLink(std::unique_ptr<PublicLinkCreate>&& request)
{
    return client.send(std::move(request), &PublicLinkCreate::bucket);
}

ReplyTo<PublicLinkList> PublicLinksClient::listLinks(std::unique_ptr<PublicLinkList>&& request)
{
    return client.send(std::move(request));
}

ReplyTo<PublicLinkRevoke> PublicLinksClient::revokeLink(std::unique_ptr<PublicLinkRevoke>&& request)
{
    return client.send(std::move(request));
}

} // namespace connector::tarn
