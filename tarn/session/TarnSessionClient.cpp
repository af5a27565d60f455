#include "tarn/session/TarnSessionClient.h"

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

Future<std::unique_ptr<LoginResponse>> TarnSessionClient::login(std::unique_ptr<Login>&& request)
{
    user = request->user;
    request->clientString = clientString;
    request->clientType = clientType;
    return context->handle<LoginResponse, Login>(std::move(request), Address(target))
        .then([this](Future<std::unique_ptr<LoginResponse>>&& reply) {
            auto response = reply.get();
            if (response) sessionId = response->sessionId;
            return response;
        });
}

Future<std::unique_ptr<LogoutResponse>> TarnSessionClient::logout(std::unique_ptr<Logout>&& request)
{
    return sendStamped<LogoutResponse>(request);
}

Future<std::unique_ptr<PingResponse>> TarnSessionClient::ping(std::unique_ptr<Ping>&& request)
{
    return sendStamped<PingResponse>(request);
}

template <class Response, class Request>
Future<std::unique_ptr<Response>> TarnSessionClient::sendStamped(std::unique_ptr<Request>& request)
{
    if (!request) request = std::make_unique<Request>();
    request->sessionId = sessionId;
    request->clientString = clientString;
    request->clientType = clientType;
    return context->handle<Response, Request>(std::move(request), Address(target));
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
