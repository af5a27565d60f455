// Whoever stops a request, or gives it until a certain time, gets his connection and his thread back, wherever it is.
#include "Bounded.h"
#include "support/ScriptedHttpServer.h"
#include "tarn/fileaccess/FolderMessages.h"
#include "tarn/foundation/CallbackSubscriber.h"
#include "tarn/foundation/Composition.h"
#include "tarn/session/SessionMessages.h"
#include "tarn/transfer/FileTransferMessages.h"
#include "tarnhost/TarnHost.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <future>
#include <thread>

namespace connector::host::test {
namespace {

using namespace std::chrono_literals;
using namespace tarn;
using common::DataBuffer;
using Clock = std::chrono::steady_clock;
using Connection = ScriptedHttpServer::Connection;

Future<void> createFolder(TarnHost& host, const CallOptions& options)
{
    auto request = std::make_unique<FolderCreate>();
    request->path = u"/a";
    return host.fileAccess()->createFolder(with(options, std::move(request))) | andThen([](auto) {});
}

Future<void> ping(TarnHost& host, const CallOptions& options)
{
    return host.session()->ping(with(options, std::make_unique<Ping>())) | andThen([](auto) {});
}

/// Of a subscriber that never asks for anything.
Future<void> download(TarnHost& host, const CallOptions& options)
{
    struct Idle : reactive_streams::SubscriberAPI<DataBuffer> {
        void onSubscribe(std::weak_ptr<reactive_streams::Subscription>) override {}

        void onNext(DataBuffer&&) override {}

        void onComplete() override {}

        void onError(std::exception_ptr) override {}

        void cancel() override {}

        Future<bool> completion() override { return makeReadyFuture(true); }
    };

    auto request = std::make_unique<FileDownload>();
    request->path = u"/a";
    request->content = std::make_shared<Idle>();
    return host.fileTransfer()->downloadFile(with(options, std::move(request))) | andThen([](auto) {});
}

/// Of a publisher that never brings anything.
Future<void> upload(TarnHost& host, const CallOptions& options)
{
    struct Idle : reactive_streams::PublisherAPI<DataBuffer>,
                  reactive_streams::Subscription,
                  std::enable_shared_from_this<Idle> {
        void subscribe(ContentSubscriber taker) override { taker->onSubscribe(weak_from_this()); }

        Future<bool> completion() override { return makeReadyFuture(true); }

        void request(std::uint64_t) override {}

        void cancel() override {}
    };

    auto request = std::make_unique<FileUpload>();
    request->path = u"/a";
    request->content = std::make_shared<Idle>();
    return host.fileTransfer()->uploadFile(with(options, std::move(request))) | andThen([](auto) {});
}

struct Phase {
    const char* doing;
    std::function<Future<void>(TarnHost&, const CallOptions&)> call;
    std::function<void(Connection&)> play; ///< up to the phase
    const char* scheme = "http";
    bool isBusy = false; ///< the one connection there may be is taken
    bool isLeft = false; ///< by the service
    bool mayHaveHappened = false;
};

const Phase phases[] = {
    {"waiting for a connection", ping, [](Connection& c) { c.readHead(); }, "http", true},
    {"connecting", ping, [](Connection&) {}, "https"},
    {"sending the request", upload, [](Connection& c) { c.readHead(); }},
    {"waiting for the reply", ping, [](Connection& c) { c.readHead(); }},
    {"waiting for the reply", createFolder, [](Connection& c) { c.readHead(); }, "http", false, false, true},
    {"receiving the reply", ping,
     [](Connection& c) {
         c.readHead();
         c.send("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n<R>");
     }},
    {"receiving the reply", download,
     [](Connection& c) {
         c.readHead();
         c.send("HTTP/1.1 200 OK\r\nContent-Length: 900000\r\n\r\n" + std::string(300'000, 'x'));
     }},
    {"waiting to try again", ping, [](Connection& c) { c.readHead(); }, "http", false, true},
};

/// @return how long after its cause the request was over: its future settled, its connection closed
Clock::duration timeToEnd(const Phase& phase, bool byDeadline)
{
    std::promise<void> reached;
    std::promise<Clock::time_point> closed;
    ScriptedHttpServer server([&](Connection& connection) {
        phase.play(connection);
        reached.set_value();
        if (!phase.isLeft) connection.stall();
        closed.set_value(Clock::now());
    });
    TarnHost host({.endpoint = phase.scheme + server.url().substr(4), .http = {.connectionsPerHost = 1}});
    auto isReached = reached.get_future();
    auto other = phase.isBusy ? ping(host, {}) : makeReadyFuture();
    // With several delivery threads the second request could be the first to get the connection.
    if (phase.isBusy) isReached.wait_for(patience);
    std::stop_source stop;
    CallOptions options{.stop = stop.get_token(), .retries = RetryPolicy{.most = 1, .firstPause = 1h}};
    if (byDeadline) options.deadline = CallOptions::in(200ms);
    auto outcome = phase.call(host, options);
    // On a machine that is busy the deadline may pass before.
    if (isReached.wait_for(byDeadline ? 1s : patience) != std::future_status::ready)
        return Clock::duration::max();
    std::this_thread::sleep_for(50ms); // the client is to see what the service has done
    const auto begin = byDeadline ? *options.deadline : Clock::now();
    if (!byDeadline) stop.request_stop();
    EXPECT_TRUE(outcome.waitFor(patience));
    auto end = Clock::now();
    auto close = closed.get_future();
    if (!phase.isBusy && close.wait_for(patience) != std::future_status::ready) return Clock::duration::max();
    if (!phase.isBusy) end = std::max(end, close.get());
    try {
        outcome.get();
        ADD_FAILURE() << "no error";
    } catch (const TransportError& error) {
        EXPECT_EQ(error.phase(), byDeadline ? TransportPhase::deadline : TransportPhase::stopped);
        EXPECT_THAT(error.what(),
                    testing::HasSubstr(std::string(byDeadline ? "passed its deadline" : "was stopped") +
                                       " while " + phase.doing));
        EXPECT_EQ(error.mayHaveHappened(), phase.mayHaveHappened);
    }
    EXPECT_EQ(server.connectionCount(), 1u);
    return end - begin;
}

#ifdef TARN_SANITIZED
constexpr auto soon = 1s;
#else
constexpr auto soon = 250ms;
#endif

std::ptrdiff_t openFiles()
{
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST(CallOptions, EndARequestInEveryPhase)
{
    const auto before = openFiles();
    for (const Phase& phase : phases)
        for (const bool byDeadline : {false, true}) {
            SCOPED_TRACE(std::string(phase.doing) + (byDeadline ? ", deadline" : ", stop"));
            auto best = Clock::duration::max(); // of some, since the machine may be busy
            for (int i = 0; i < 10 && best > soon; ++i)
                best = std::min(best, timeToEnd(phase, byDeadline));
            EXPECT_LE(best, soon);
        }
    EXPECT_EQ(openFiles(), before);
}

TEST(CallOptions, TellProgressAndContinueOnTheExecutor)
{
    ScriptedHttpServer server(
        ScriptedHttpServer::always(ScriptedHttpServer::reply("<R><Value>v</Value></R>")));
    TarnHost host({.endpoint = server.url()});
    std::vector<TransferProgress> seen;
    std::promise<std::function<void()>> posted;
    CallOptions options{.progress =
                            [&](const TransferProgress& progress) {
                                seen.push_back(progress);
                                throw std::runtime_error("disturbs nobody");
                            },
                        .executor = [&](std::function<void()> job) { posted.set_value(std::move(job)); }};
    auto reply = host.session()->ping(with(options, std::make_unique<Ping>()));
    const auto job = posted.get_future().get();
    EXPECT_FALSE(reply.isReady());
    job();
    EXPECT_EQ(reply.get()->value, "v");
    ASSERT_FALSE(seen.empty());
    EXPECT_EQ(seen.back(), (TransferProgress{0, 23, 0, 23}));
}

/// What the callback uses may go when the future is settled.
TEST(CallOptions, TellAllProgressBeforeADownloadIsSettled)
{
    ScriptedHttpServer server(ScriptedHttpServer::always(ScriptedHttpServer::reply("content")));
    TarnHost host({.endpoint = server.url(), .threads = 2});
    std::atomic<std::uint64_t> received = 0;
    CallOptions options{.progress = [&](const TransferProgress& progress) {
        std::this_thread::sleep_for(20ms); // room for the end to overtake it
        received = progress.received;
    }};
    auto download = std::make_unique<FileDownload>();
    download->path = u"/a";
    download->content = std::make_shared<reactive_streams::CallbackSubscriber<DataBuffer>>([](auto&&) {});
    bounded(host.fileTransfer()->downloadFile(with(std::move(options), std::move(download))));
    EXPECT_EQ(received, 7u);
}

} // namespace
} // namespace connector::host::test
