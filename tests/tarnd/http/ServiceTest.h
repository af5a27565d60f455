#pragma once

#include "tests/support/TarndProcess.h"
#include "tests/tarnd/access/ServiceUser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace tarnd::test {

/// A real service with two users who are logged in.
class ServiceTest : public ::testing::Test {
protected:
    explicit ServiceTest(std::vector<std::string> serveArguments = {}) : service(std::move(serveArguments))
    {
        service.start();
        alice = logIn(aliceToken);
        bob = logIn(service.addUser("bob"));
    }

    /// The session of a login; empty when that is refused.
    std::string logIn(const std::string& token)
    {
        ServiceUser user(service.url());
        user.login(token);
        return user.session();
    }

    /// One request on a connection of its own.
    WireReply send(const std::string& request, bool toHead = false)
    {
        Wire wire(service.port());
        wire.send(request);
        return wire.receive(toHead).value_or(WireReply{});
    }

    WireReply asAlice(std::string_view method, std::string_view target, std::string_view body = {})
    {
        return send(requestText(method, target, alice, body));
    }

    /// Stores a file of alice's and requires that it worked.
    void put(const std::string& path, std::string_view content)
    {
        require(asAlice("PUT", "/service/v1/files" + path + "?createMode=CREATE_OR_UPDATE", content));
    }

    /// The path of a new public link: "/public/TOKEN".
    std::string linkTo(const std::string& path)
    {
        const auto url =
            parseXml(asAlice("GET", "/service/v1/public/urls" + path).body).only("PublicAccessUrl");
        EXPECT_EQ(url.substr(0, service.url().size() + 8), service.url() + "/public/");
        return url.substr(service.url().size());
    }

    TarndProcess service;
    const std::string aliceToken = service.addUser("alice");
    std::string alice, bob; ///< session ids
};

} // namespace tarnd::test
