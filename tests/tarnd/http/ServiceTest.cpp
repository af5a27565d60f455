#include "tests/tarnd/http/ServiceTest.h"

namespace tarnd::test {

ServiceTest::ServiceTest(std::vector<std::string> serveArguments)
    : service(std::move(serveArguments))
    , aliceToken(service.addUser("alice"))
    , bobToken(service.addUser("bob"))
{
    service.start();
    alice = logIn(aliceToken);
    bob = logIn(bobToken);
}

std::string ServiceTest::logIn(const std::string& token)
{
    const auto reply = send(requestText("GET", "/service/v1/login?locale=en_US", {}, {},
                                        "x-qz-authentication-token: " + token + "\r\n"));
    return textOf(reply.body, "TarnSessionId");
}

WireReply ServiceTest::send(const std::string& request, bool toHead)
{
    Wire wire(service.port());
    wire.send(request);
    return wire.receive(toHead).value_or(WireReply{});
}

WireReply ServiceTest::asAlice(std::string_view method, std::string_view target, std::string_view body)
{
    return send(requestText(method, target, alice, body));
}

WireReply ServiceTest::asBob(std::string_view method, std::string_view target, std::string_view body)
{
    return send(requestText(method, target, bob, body));
}

void ServiceTest::put(const std::string& path, std::string_view content)
{
    const auto reply = asAlice("PUT", "/service/v1/files" + path + "?createMode=CREATE_OR_UPDATE", content);
    ASSERT_EQ(reply.status, 200) << reply.body;
}

std::string textOf(const std::string& document, const std::string& element)
{
    const auto open = "<" + element + ">";
    const auto begin = document.find(open);
    if (begin == std::string::npos || document.find(open, begin + 1) != std::string::npos) return {};
    const auto end = document.find("</" + element + ">", begin);
    return document.substr(begin + open.size(), end - begin - open.size());
}

std::string errorOf(const WireReply& reply)
{
    return std::to_string(reply.status) + " " + textOf(reply.body, "code");
}

} // namespace tarnd::test
