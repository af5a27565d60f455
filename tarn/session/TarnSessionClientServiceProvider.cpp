#include "tarn/session/TarnSessionClientServiceProvider.h"

#include "tarn/protocol/HttpExchange.h"
#include "tarn/protocol/ServiceRequest.h"

namespace connector::tarn {
namespace {

std::unique_ptr<LoginResponse> readLogin(const Poco::XML::Document& reply)
{
    auto response = std::make_unique<LoginResponse>();
    response->sessionId = documentText(reply, "TarnSessionId");
    response->minutesBeforeRelogin =
        static_cast<std::uint32_t>(std::stoul(documentText(reply, "MinutesBeforeRelogin", "0")));
    return response;
}

std::unique_ptr<PingResponse> readPing(const Poco::XML::Document& reply)
{
    auto response = std::make_unique<PingResponse>();
    response->value = documentText(reply, "Value");
    return response;
}

/// Login and logout change something behind a "get": repeated on a fresh connection, they would happen twice.
std::unique_ptr<http::HttpClientRequest> onlyOnce(std::unique_ptr<http::HttpClientRequest> request)
{
    request->atMostOnce = true;
    return request;
}

} // namespace

TarnSessionClientServiceProvider::TarnSessionClientServiceProvider(
    std::shared_ptr<configuration::Configuration> store, const std::string& initialEndpoint)
    : endpoint(initialEndpoint)
    , configuration(std::move(store))
    , cancellers(trackEndpoint(configuration, initialEndpoint, [this](configuration::ConfigValue&& value) {
        std::lock_guard lock(mutex);
        endpoint = boost::get<std::string>(std::move(value));
    }))
{
}

std::string TarnSessionClientServiceProvider::getEndpoint() const
{
    std::lock_guard lock(mutex);
    return endpoint;
}

Future<std::unique_ptr<Message>> TarnSessionClientServiceProvider::handle(std::unique_ptr<Login>&& request,
                                                                          Address&& to,
                                                                          std::shared_ptr<Context>&& context)
{
    auto build = [&] {
        ServiceRequest login("get", getEndpoint() + "/service/v1/login");
        login.addIdentity(*request);
        login.addHeader(authenticationTokenHeader, request->authenticationToken);
        return onlyOnce(login.build());
    };
    return buildAndExchangeXml(build, std::move(to), *context, readLogin);
}

Future<std::unique_ptr<Message>> TarnSessionClientServiceProvider::handle(std::unique_ptr<Logout>&& request,
                                                                          Address&& to,
                                                                          std::shared_ptr<Context>&& context)
{
    auto build = [&] {
        return onlyOnce(makeSessionHttpRequest(getEndpoint(), "get", "/service/v1/logout", "", *request));
    };
    return buildAndExchangeXml(build, std::move(to), *context, readNothing<LogoutResponse>);
}

Future<std::unique_ptr<Message>> TarnSessionClientServiceProvider::handle(std::unique_ptr<Ping>&& request,
                                                                          Address&& to,
                                                                          std::shared_ptr<Context>&& context)
{
    auto build = [&] {
        return makeSessionHttpRequest(getEndpoint(), "get", "/service/v1/ping", "", *request);
    };
    return buildAndExchangeXml(build, std::move(to), *context, readPing);
}

} // namespace connector::tarn
