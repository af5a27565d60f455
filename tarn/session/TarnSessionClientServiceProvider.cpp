#include "tarn/session/TarnSessionClientServiceProvider.h"

#include "tarn/protocol/HttpExchange.h"
#include "tarn/protocol/ReplyFields.h"
#include "tarn/protocol/ServiceRequest.h"

namespace connector::tarn {
namespace {

using Reply = TarnSessionServiceProvider::Reply;

constexpr std::tuple loginFields{
    Field{"TarnSessionId", &LoginResponse::sessionId},
    Field{"MinutesBeforeRelogin", &LoginResponse::minutesBeforeRelogin},
};

constexpr std::tuple pingFields{Field{"Value", &PingResponse::value}};

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

Reply TarnSessionClientServiceProvider::handle(std::unique_ptr<Login>&& request, Address&& to,
                                               ContextPtr&& context)
{
    auto build = [&] {
        ServiceRequest login("get", getEndpoint() + "/service/v1/login");
        login.addIdentity(*request);
        login.addHeader(authenticationTokenHeader, request->authenticationToken);
        return onlyOnce(login.build());
    };
    return buildAndExchangeXml(build, std::move(to), *context, fieldsReader<LoginResponse>(loginFields));
}

Reply TarnSessionClientServiceProvider::handle(std::unique_ptr<Logout>&& request, Address&& to,
                                               ContextPtr&& context)
{
    auto build = [&] {
        return onlyOnce(makeSessionHttpRequest(getEndpoint(), "get", "/service/v1/logout", "", *request));
    };
    return buildAndExchangeXml(build, std::move(to), *context, readNothing<LogoutResponse>);
}

Reply TarnSessionClientServiceProvider::handle(std::unique_ptr<Ping>&& request, Address&& to,
                                               ContextPtr&& context)
{
    auto build = [&] {
        return makeSessionHttpRequest(getEndpoint(), "get", "/service/v1/ping", "", *request);
    };
    return buildAndExchangeXml(build, std::move(to), *context, fieldsReader<PingResponse>(pingFields));
}

} // namespace connector::tarn
