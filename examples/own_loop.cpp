// The library under an event loop of the application: every step after a request runs on the loop's own thread. One
// executor, in one line, is all that a loop needs: here Asio's, and GLib's, which GTK runs on.
#include "tarn/coroutine.h"
#include "tarn/foundation/Composition.h"
#include "tarnhost/TarnAsync.h"
#include "tarnhost/TarnHost.h"
#include "tarntesting/TestService.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <glib.h>
#include <gtest/gtest.h>

#include <thread>

namespace {

using namespace connector;
using host::TarnAsync;

/// Stores, lists and reads, one after the other, and notes the thread of each step.
Future<std::string> storeAndReadBack(TarnAsync& tarn, Executor onLoop, std::vector<std::thread::id>& threads)
{
    co_await (tarn.write("/a", "from a loop") | via(onLoop));
    threads.push_back(std::this_thread::get_id());
    const auto entries = co_await (tarn.list("/") | via(onLoop));
    threads.push_back(std::this_thread::get_id());
    auto content = co_await (tarn.read("/" + entries.at(0).name) | via(onLoop));
    threads.push_back(std::this_thread::get_id());
    co_return content;
}

/// Runs the loop until the steps are done.
void expectOnThisThread(Executor onLoop, const std::function<void()>& run, const std::function<void()>& stop)
{
    tarntesting::TestService service;
    TarnAsync tarn(
        std::make_shared<host::TarnHost>(host::TarnHost::Options{.endpoint = service.url(), .threads = 1}));
    tarn.logIn({"alice", service.addUser("alice")}).get(); // the loop does not run yet
    std::vector<std::thread::id> threads;
    std::string content;
    auto ended = storeAndReadBack(tarn, onLoop, threads) | andThen([&](std::string text) {
                     content = std::move(text);
                     threads.push_back(std::this_thread::get_id());
                 }) |
                 finally(stop);
    run();
    ended.get();
    EXPECT_EQ(content, "from a loop");
    EXPECT_EQ(threads, std::vector(4, std::this_thread::get_id()));
}

TEST(OwnLoop, OfAsio)
{
    boost::asio::io_context loop;
    const auto keepsRunning = boost::asio::make_work_guard(loop);
    const Executor onLoop = [&](std::function<void()> job) { boost::asio::post(loop, std::move(job)); };
    expectOnThisThread(
        onLoop, [&] { loop.run(); }, [&] { loop.stop(); });
}

TEST(OwnLoop, OfGLib)
{
    GMainLoop* const loop = g_main_loop_new(nullptr, FALSE);
    const Executor onLoop = [](std::function<void()> job) {
        const auto runOnce = [](void* given) -> gboolean {
            const std::unique_ptr<std::function<void()>> taken(static_cast<std::function<void()>*>(given));
            (*taken)();
            return G_SOURCE_REMOVE;
        };
        g_idle_add(runOnce, new std::function<void()>(std::move(job)));
    };
    expectOnThisThread(
        onLoop, [&] { g_main_loop_run(loop); }, [&] { g_main_loop_quit(loop); });
    g_main_loop_unref(loop);
}

} // namespace
