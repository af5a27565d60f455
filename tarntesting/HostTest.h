#pragma once

#include "tarn/fileaccess/FileAccessClient.h"
#include "tarn/fileaccess/FileAccessClientServiceProvider.h"
#include "tarn/foundation/ContentReduction.h"
#include "tarn/foundation/OneShotPublisher.h"
#include "tarn/foundation/platform/HttpClientRequest.h"
#include "tarn/foundation/platform/HttpClientResponse.h"
#include "tarn/foundation/platform/ServiceProvider.h"
#include "tarn/protocol/TarnError.h"
#include "tarn/session/TarnSessionClient.h"
#include "tarn/session/TarnSessionClientServiceProvider.h"
#include "tarntesting/LostResults.h"
#include "tarntesting/ScriptedHttpServer.h"
#include "tarntesting/TestService.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/// What the library needs of the host it runs in, as tests: for whoever writes a host.
///
///     class MyHostUnderTest : public tarntesting::HostUnderTest { … };
///     TARN_HOST_TEST([] { return std::make_unique<MyHostUnderTest>(); });
///
/// in a source file of a GoogleTest program makes a test of each rule. Every wait is bounded.
namespace tarntesting {

using connector::Address;
using connector::Connector;
using connector::Context;
using connector::Future;
using connector::Message;
using connector::ServiceProvider;

/// A host, started, as far as these tests have to know it. Its destructor ends the host: it settles all that is under
/// way, and may fail it.
class HostUnderTest {
public:
    virtual ~HostUnderTest() = default;

    /// What clients are made with.
    virtual std::shared_ptr<Connector> connector() = 0;

    /// Where the host takes connector::http::HttpClientRequest.
    virtual Address http() = 0;

    /// Starts `provider` and delivers to it what is sent to `address`, with http() as the way onward.
    virtual void serve(const Address& address, std::shared_ptr<ServiceProvider> provider) = 0;
};

struct HostFactory {
    std::function<std::unique_ptr<HostUnderTest>()> make;

    friend void PrintTo(const HostFactory&, std::ostream* out) { *out << "a host"; }
};

class HostTest : public ::testing::TestWithParam<HostFactory> {
protected:
    void TearDown() override
    {
        EXPECT_EQ(lost.dropped(), std::vector<std::string>()) << "promises that the host let go of";
    }

    using Reply = std::unique_ptr<Message>;
    static constexpr std::chrono::seconds patience{20};

    struct Hanging : std::exception {
        const char* what() const noexcept override { return "A future was not settled within 20 seconds."; }
    };

    /// How an exchange ended: status and body, or that it failed.
    struct Outcome {
        bool failed = false;
        unsigned status = 0;
        std::string body = {};
    };

    Future<Reply> send(std::unique_ptr<Message> message, Address to)
    {
        return host->connector()->getContext()->send(std::move(message), std::move(to));
    }

    using Header = std::pair<std::string, std::string>;

    Future<Reply> send(const std::string& method, const std::string& url, const char* body = nullptr,
                       bool atMostOnce = false, const std::optional<Header>& header = {})
    {
        using Publisher = connector::reactive_streams::OneShotPublisher<connector::common::DataBuffer>;
        auto content = body ? std::make_shared<Publisher>(connector::common::DataBuffer(body)) : nullptr;
        auto request = std::make_unique<connector::http::HttpClientRequest>(url, method, std::move(content));
        request->headers = {{"x-session", "s1"}, {"x-empty", ""}};
        if (header) request->headers.insert(*header);
        request->atMostOnce = atMostOnce;
        return send(std::move(request), host->http());
    }

    template <class T>
    static T bounded(Future<T> future)
    {
        if (!future.waitFor(patience)) throw Hanging();
        return future.get();
    }

    static Outcome outcomeOf(Future<Reply> future)
    {
        if (!future.waitFor(patience)) throw Hanging();
        try {
            const auto message = future.get();
            auto& response = dynamic_cast<connector::http::HttpClientResponse&>(*message);
            if (!response.body) return {false, response.status};
            const auto content =
                bounded(connector::reactive_streams::reduceContentToDataBuffer(response.body));
            return {false, response.status, std::string(content.bytes())};
        } catch (const Hanging&) {
            throw;
        } catch (const std::exception&) {
            return {.failed = true};
        }
    }

    /// "name: value" with the name in lower case, for each header of the request.
    static std::vector<std::string> headersOf(const std::string& request)
    {
        std::vector<std::string> headers;
        auto at = request.find("\r\n") + 2;
        for (auto end = request.find("\r\n", at); end > at; at = end + 2, end = request.find("\r\n", at)) {
            auto line = request.substr(at, end - at);
            std::transform(line.begin(), line.begin() + static_cast<std::ptrdiff_t>(line.find(':')),
                           line.begin(), [](unsigned char c) { return std::tolower(c); });
            while (line.ends_with(' '))
                line.pop_back();
            headers.push_back(std::move(line));
        }
        return headers;
    }

    const LostResults lost;
    std::unique_ptr<HostUnderTest> host = GetParam().make();
};

TEST_P(HostTest, SendsTheRequestAsItStands)
{
    struct Row {
        const char *method, *target, *body, *line, *length;
        std::optional<Header> framing = {};
    };

    for (const auto& [method, target, body, line, length, framing] :
         {Row{"get", "/a%20b?x=1&y=%26", nullptr, "GET /a%20b?x=1&y=%26 HTTP/1.1", nullptr},
          Row{"get", "/a/../b/./c//d", nullptr, "GET /a/../b/./c//d HTTP/1.1", nullptr},
          Row{"put", "/f", "hello", "PUT /f HTTP/1.1", "content-length: 5"},
          Row{"put", "/f", "", "PUT /f HTTP/1.1", "content-length: 0"},
          Row{"put", "/f", "hello", "PUT /f HTTP/1.1", "content-length: 5", Header{"Content-Length", "5"}},
          Row{"put", "/f", "hello", "PUT /f HTTP/1.1", nullptr, Header{"Transfer-Encoding", "chunked"}},
          Row{"delete", "/f", nullptr, "DELETE /f HTTP/1.1", nullptr}}) {
        ScriptedHttpServer server(ScriptedHttpServer::always(ScriptedHttpServer::reply("ok")));
        EXPECT_EQ(outcomeOf(send(method, server.url(target), body, false, framing)).body, "ok");
        const auto requests = server.requests();
        ASSERT_EQ(requests.size(), 1u);
        EXPECT_EQ(requests[0].substr(0, requests[0].find("\r\n")), line);
        const auto headers = headersOf(requests[0]);
        const auto has = [&](const std::string& header) {
            return std::find(headers.begin(), headers.end(), header) != headers.end();
        };
        EXPECT_TRUE(has("host: " + server.peer())) << requests[0];
        EXPECT_TRUE(has("x-session: s1") && has("x-empty:")) << requests[0];
        EXPECT_TRUE(!length || has(length)) << requests[0];
        const auto framings = std::count_if(headers.begin(), headers.end(), [](const auto& sent) {
            return sent.starts_with("content-length:") || sent.starts_with("transfer-encoding:");
        });
        EXPECT_LE(framings, 1) << "says more than once where the body ends: " << requests[0];
        const auto content = has("transfer-encoding: chunked") ? "5\r\nhello\r\n0\r\n\r\n" : body;
        EXPECT_TRUE(!body || requests[0].ends_with(std::string("\r\n\r\n") + content)) << requests[0];
        EXPECT_EQ(requests[0].find("ccept-"), std::string::npos) << "asks for what nobody wanted";
    }
}

TEST_P(HostTest, HandsTheReplyOverAsItCame)
{
    const std::string packed("\x1f\x8b\x08\x01", 4);
    const std::vector<std::pair<std::string, Outcome>> rows = {
        {ScriptedHttpServer::reply("<a/>", "404 Not Found"), {false, 404, "<a/>"}},
        {"HTTP/1.1 302 Found\r\nLocation: /elsewhere\r\nContent-Length: 0\r\n\r\n", {false, 302, ""}},
        {"HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 4\r\n\r\n" + packed,
         {false, 200, packed}},
        {"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n1\r\nd\r\n0\r\n\r\n",
         {false, 200, "abcd"}},
    };
    for (const auto& [bytes, expected] : rows) {
        ScriptedHttpServer server(ScriptedHttpServer::always(bytes));
        const auto outcome = outcomeOf(send("get", server.url("/x")));
        EXPECT_FALSE(outcome.failed);
        EXPECT_EQ(outcome.status, expected.status);
        EXPECT_EQ(outcome.body, expected.body);
        EXPECT_EQ(server.requests().size(), 1u);
    }
}

TEST_P(HostTest, FailsWhereNoWholeReplyCame)
{
    EXPECT_TRUE(outcomeOf(send("get", "http://127.0.0.1:" + std::to_string(closedPort()) + "/")).failed);
    for (const std::string reply :
         {"", "HTTP/1.1 200 OK\r\nContent-Le", "HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\nabc",
          "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n"}) {
        ScriptedHttpServer server([&](auto& connection) {
            connection.readRequest();
            connection.send(reply);
        });
        EXPECT_TRUE(outcomeOf(send("get", server.url("/x"))).failed) << reply;
    }
}

TEST_P(HostTest, NeverSendsAChangeTwice)
{
    struct Row {
        const char *method, *body;
        bool atMostOnce;
    };

    for (const auto& [method, body, atMostOnce] :
         {Row{"put", "x", false}, Row{"delete", nullptr, false}, Row{"get", nullptr, true}}) {
        // The first request of a connection is answered, the second finds it dead.
        ScriptedHttpServer server([](auto& connection) {
            if (connection.readRequest()) connection.send(ScriptedHttpServer::reply("ok"));
            connection.readRequest();
        });
        EXPECT_EQ(outcomeOf(send("get", server.url("/first"))).body, "ok");
        outcomeOf(send(method, server.url("/change"), body, atMostOnce));
        const auto heads = server.heads();
        EXPECT_LE(std::count_if(heads.begin(), heads.end(),
                                [](const auto& head) { return head.find("/change") != std::string::npos; }),
                  1)
            << method;
    }
}

TEST_P(HostTest, KeepsManyRequestsApart)
{
    ScriptedHttpServer server([](auto& connection) {
        while (const auto request = connection.readRequest()) {
            const auto at = request->find('/');
            connection.send(ScriptedHttpServer::reply(request->substr(at, request->find(' ', at) - at)));
        }
    });
    std::vector<Future<Reply>> replies;
    for (int i = 0; i < 100; ++i)
        replies.push_back(send("get", server.url("/" + std::to_string(i))));
    for (int i = 0; i < 100; ++i)
        EXPECT_EQ(outcomeOf(std::move(replies[static_cast<std::size_t>(i)])).body, "/" + std::to_string(i));
}

/// Answers each message with what its `answer` does.
class AnsweringProvider : public ServiceProvider {
public:
    using Answer = std::function<Future<std::unique_ptr<Message>>(const Address& to)>;

    explicit AnsweringProvider(Answer theAnswer) : answer(std::move(theAnswer)) {}

    Future<std::unique_ptr<Message>> deliver(std::unique_ptr<Message>&&, Address&& to,
                                             std::shared_ptr<Context>&&) override
    {
        EXPECT_TRUE(isRunning());
        return answer(to);
    }

private:
    Answer answer;
};

TEST_P(HostTest, DeliversToTheProviderAtTheAddress)
{
    host->serve(Address("throws"), std::make_shared<AnsweringProvider>(
                                       [](auto&) -> Future<Reply> { throw std::runtime_error("refused"); }));
    host->serve(Address("null"), std::make_shared<AnsweringProvider>(
                                     [](auto&) { return connector::makeReadyFuture(Reply()); }));
    host->serve(Address("onward"), std::make_shared<AnsweringProvider>([this](const Address& to) {
                    EXPECT_EQ(to, host->http());
                    return connector::makeReadyFuture(std::make_unique<Message>());
                }));
    const auto textOf = [this](const char* address) -> std::string {
        try {
            return bounded(send(std::make_unique<Message>(), Address(address))) ? "a message" : "null";
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    };
    EXPECT_EQ(textOf("throws"), "refused");
    EXPECT_EQ(textOf("null"), "null");
    EXPECT_EQ(textOf("onward"), "a message");
    EXPECT_NE(textOf("nobody is here"), "a message");
}

TEST_P(HostTest, CarriesTheLibrary)
{
    TestService service;
    const auto token = service.addUser("alice");
    host->serve(Address("session"),
                std::make_shared<connector::tarn::TarnSessionClientServiceProvider>(nullptr, service.url()));
    host->serve(Address("files"),
                std::make_shared<connector::tarn::FileAccessClientServiceProvider>(nullptr, service.url()));
    const auto session = std::make_shared<connector::tarn::TarnSessionClient>(
        host->connector(), Address("session"), "host test", "test", "en_US");
    connector::tarn::FileAccessClient files(session, host->connector(), Address("files"));

    auto login = std::make_unique<connector::tarn::Login>();
    login->user = u"alice";
    login->authenticationToken = token;
    bounded(session->login(std::move(login)));
    const std::string content(3'000'000, 'x');
    auto create = std::make_unique<connector::tarn::FileCreate>();
    create->path = u"/large";
    create->content = connector::common::DataBuffer(content);
    bounded(files.createFile(std::move(create)));
    auto read = std::make_unique<connector::tarn::FileRead>();
    read->path = u"/large";
    EXPECT_EQ(bounded(files.readFile(std::move(read)))->content.bytes(), content);
    auto missing = std::make_unique<connector::tarn::FileRead>();
    missing->path = u"/missing";
    try {
        bounded(files.readFile(std::move(missing)));
        ADD_FAILURE() << "read a file that is not there";
    } catch (const connector::tarn::TarnError& error) {
        EXPECT_EQ(error.kind(), connector::tarn::ErrorKind::notFound);
    }
}

TEST_P(HostTest, SettlesEverythingWhenItEnds)
{
    ScriptedHttpServer server([](auto& connection) {
        connection.readRequest();
        connection.send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\n");
        connection.stall();
    });
    std::vector<Future<Reply>> replies;
    for (int i = 0; i < 8; ++i)
        replies.push_back(send("get", server.url("/" + std::to_string(i))));
    EXPECT_TRUE(server.waitForHeads(1));
    host.reset();
    for (auto& reply : replies)
        EXPECT_TRUE(outcomeOf(std::move(reply)).failed);
}

} // namespace tarntesting

/// Tests the hosts that the factory makes, one for each test. Once in a program.
#define TARN_HOST_TEST(...)                                                                                  \
    namespace tarntesting {                                                                                  \
    INSTANTIATE_TEST_SUITE_P(Host, HostTest, ::testing::Values(HostFactory{__VA_ARGS__}));                   \
    }
