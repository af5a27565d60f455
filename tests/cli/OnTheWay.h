#pragma once

#include "tests/cli/Shell.h"
#include "tests/support/FaultServer.h"

#include <filesystem>
#include <gmock/gmock.h>
#include <string>

namespace tarncli::test {

/// A service whose replies, some of them, come to harm on their way.
class OnTheWay : public testing::Test {
protected:
    using Play = connector::host::test::Fault::Play;

    OnTheWay()
    {
        service.start();
        const auto token = service.addUser("alice");
        for (auto* shell : {&alice, &other}) {
            shell->set("TARN_USER", "alice");
            shell->set("TARN_TOKEN", token);
        }
        other.set("TARN_ENDPOINT", service.url());
        other.write("f", "theirs");
        for (int i = 0; i < 1'000'000; ++i)
            content += static_cast<char>(i * 7 + i / 1000);
        store(content);
        alice.write("f", "old");
    }

    void store(const std::string& bytes)
    {
        alice.write("f", bytes);
        EXPECT_EQ(run("put -q -f f /f || tarn put -q f /f").exitCode, 0);
    }

    /// Runs tarn where the first `times` requests that begin with `struck` meet `play`.
    CommandResult run(const std::string& arguments, const std::string& struck = "", int times = 0,
                      const Play& play = nullptr)
    {
        const connector::host::test::FaultServer server(
            {"", connector::host::test::Ending::noReply, play},
            connector::host::test::truthOf(service.port()),
            [&](const std::string& request) { return request.starts_with(struck) && times-- > 0; });
        alice.set("TARN_ENDPOINT", server.url());
        return alice.run("tarn " + arguments);
    }

    /// The file in which the service keeps what is stored now.
    std::filesystem::path onlyContent() const
    {
        for (const auto& entry :
             std::filesystem::recursive_directory_iterator(service.dataDir() / "contents"))
            if (entry.is_regular_file() && entry.file_size() == content.size()) return entry.path();
        return {};
    }

    static Play cut()
    {
        return [](connector::host::test::ScriptedHttpServer::Connection& connection,
                  const connector::host::test::TrueReply& reply) {
            connection.send(reply.head + reply.body.substr(0, reply.body.size() * 2 / 5));
        };
    }

    static constexpr const char* fetching = "GET /service/v1/files/f";
    tarnd::test::TarndProcess service;
    Shell alice;
    Shell other; ///< of hers, on another machine that nothing goes wrong for
    std::string content;
};

} // namespace tarncli::test
