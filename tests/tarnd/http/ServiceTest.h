#pragma once

#include "tests/support/TarndProcess.h"
#include "tests/tarnd/http/Wire.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

namespace tarnd::test {

/// A real service with two users who are logged in.
class ServiceTest : public ::testing::Test {
protected:
    explicit ServiceTest(std::vector<std::string> serveArguments = {});

    /// Logs a user in over the wire; returns the session id.
    std::string logIn(const std::string& token);

    /// One request on a connection of its own.
    WireReply send(const std::string& request, bool toHead = false);

    WireReply asAlice(std::string_view method, std::string_view target, std::string_view body = {});
    WireReply asBob(std::string_view method, std::string_view target, std::string_view body = {});

    /// Stores a file of alice's and requires that it worked.
    void put(const std::string& path, std::string_view content);

    TarndProcess service;
    std::string aliceToken;
    std::string bobToken;
    std::string alice; ///< session id
    std::string bob;   ///< session id
};

/// The text of the only element of that name; empty when there is none or more than one.
std::string textOf(const std::string& document, const std::string& element);

/// "STATUS sentence" of an error reply.
std::string errorOf(const WireReply& reply);

} // namespace tarnd::test
