#include "tarn/session/TarnSessionClient.h"

#include "tarn/protocol/ServiceClient.h"

namespace connector::tarn {

TarnSessionClient::TarnSessionClient(std::shared_ptr<Connector> connector, const Address& address,
                                     const std::string& client, const std::string& type,
                                     const std::string& initialLocale)
    : context(connector->getContext())
    , target(address)
    , clientString(client)
    , clientType(type)
    , locale(initialLocale)
{
}

ReplyTo<Login> TarnSessionClient::login(std::unique_ptr<Login>&& request)
{
    // Before the reply, so that the default mount point is known to whoever uses the session meanwhile.
    user = request->user;
    request->clientString = clientString;
    request->clientType = clientType;
    const auto options = optionsOf(*request);
    auto answer =
        context
            ->handle<LoginResponse, Login>(std::move(request), Address(target))
            // No shared pointer to this object: it would keep a session alive that the application has let go.
            .then([this](ReplyTo<Login>&& reply) {
                auto response = reply.get();
                if (response) sessionId = response->sessionId;
                return response;
            });
    return settledAs(options, std::move(answer));
}

ReplyTo<Logout> TarnSessionClient::logout(std::unique_ptr<Logout>&& request)
{
    return sendStamped(request);
}

ReplyTo<Ping> TarnSessionClient::ping(std::unique_ptr<Ping>&& request)
{
    return sendStamped(request);
}

template <class Request>
ReplyTo<Request> TarnSessionClient::sendStamped(std::unique_ptr<Request>& request)
{
    if (!request) request = std::make_unique<Request>();
    request->sessionId = sessionId;
    request->clientString = clientString;
    request->clientType = clientType;
    const auto options = optionsOf(*request);
    return settledAs(
        options, context->handle<typename Request::Response, Request>(std::move(request), Address(target)));
}

void TarnSessionClient::setMountPoint(const std::u16string& value)
{
    mountPoint = value;
    if (!mountPoint.empty() && mountPoint.back() == u'/') mountPoint.pop_back();
}

std::u16string TarnSessionClient::getMountPoint()
{
    return mountPoint.empty() ? u"/users/" + user : mountPoint;
}

} // namespace connector::tarn
