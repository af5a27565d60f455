// A session or a service that ends while many files are on their way: the session is renewed once for all, nothing is
// sent twice, what is there is whole, and what is missing is told.
#include "tests/cli/Shell.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <future>
#include <sys/stat.h>
#include <thread>

namespace tarncli::test {
namespace {

namespace fs = std::filesystem;
using tarnd::test::TarndProcess;
using testing::HasSubstr;

constexpr std::size_t files = 400;

std::size_t count(const std::string& text, const std::string& part)
{
    std::size_t found = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++found;
    return found;
}

class Interrupted : public testing::Test {
protected:
    Interrupted()
    {
        service.start();
        token = alice.logIn(service, "alice");
        for (std::size_t i = 0; i < files; ++i)
            alice.write("tree/" + std::to_string(i), std::string(20'000, static_cast<char>(i)));
    }

    static void waitUntil(const std::function<bool()>& condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!condition() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

    /// How many requests of the kind the service has had.
    std::size_t requests(const std::string& kind) const { return count(service.errors(), kind); }

    std::size_t logins() const { return requests("/service/v1/login"); }

    /// Ends alice's session behind her back: another shell logs out with a copy of what she keeps.
    void endSession() const
    {
        Shell thief;
        thief.set("TARN_ENDPOINT", service.url());
        fs::create_directories(thief.stateFolder().parent_path());
        fs::copy(alice.stateFolder(), thief.stateFolder(), fs::copy_options::recursive);
        ASSERT_EQ(thief.tarn({"logout"}).exitCode, 0);
    }

    /// How many files are below `folder`; each must be whole.
    std::size_t wholeFiles(const std::string& folder) const
    {
        const auto source = contentsOf(alice.work() / "tree");
        const auto found = contentsOf(alice.work() / folder);
        for (const auto& [name, content] : found)
            EXPECT_TRUE(source.contains(name) && source.at(name) == content) << name;
        return found.size();
    }

    std::size_t arrived(const std::string& folder) const
    {
        std::error_code ignored;
        return static_cast<std::size_t>(
            std::distance(fs::directory_iterator(alice.work() / folder, ignored), {}));
    }

    TarndProcess service{{"--verbose"}};
    Shell alice;
    std::string token;
};

TEST_F(Interrupted, SessionIsRenewedOnceInTheMiddleAndEveryFileArrives)
{
    auto put = std::async(std::launch::async, [&] {
        return alice.tarn({"put", "-r", "-j", "8", "tree/", "/tree"});
    });
    waitUntil([&] { return requests("PUT /service/v1/files") >= 20; });
    endSession();
    const auto result = put.get();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(logins(), 2u);
    EXPECT_EQ(alice.tarn({"get", "-r", "/tree/", "back"}).exitCode, 0);
    EXPECT_EQ(wholeFiles("back"), files);
}

TEST_F(Interrupted, SessionEndsWhileStandardInputIsReadWhichIsNotLost)
{
    const auto pipe = alice.work() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    auto put = std::async(std::launch::async, [&] { return alice.run("exec tarn put - /input <pipe"); });
    std::ofstream input(pipe);
    waitUntil([&] { return requests("GET /service/v1/filesystem/input") > 0; });
    endSession();
    input << "all of it";
    input.close();
    EXPECT_EQ(put.get().exitCode, 0);
    EXPECT_EQ(logins(), 2u);
    EXPECT_EQ(alice.tarn({"cat", "/input"}).out, "all of it");
}

TEST_F(Interrupted, NotByASignalThatItWasToldToIgnore)
{
    const auto pipe = alice.work() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    auto put = std::async(std::launch::async, [&] {
        return alice.run("trap '' HUP INT; echo $$ >pid; exec tarn put - /input <pipe");
    });
    std::ofstream input(pipe);
    waitUntil([&] { return requests("GET /service/v1/filesystem/input") > 0; });
    pid_t process = 0;
    std::ifstream(alice.work() / "pid") >> process;
    ASSERT_GT(process, 0);
    for (const int signal : {SIGHUP, SIGINT})
        ::kill(process, signal);
    input << "all of it";
    input.close();
    EXPECT_EQ(put.get().exitCode, 0);
}

TEST_F(Interrupted, SessionWithoutAValidTokenStopsAndSaysSo)
{
    service.run({"user", "rotate", "alice"});
    const auto result = alice.tarn({"put", "-r", "-j", "4", "tree/", "/tree"});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_THAT(result.err, HasSubstr("tarn login"));
    EXPECT_LT(count(result.err, "\n"), 5u); // not a line per file
}

TEST_F(Interrupted, PutSurvivesARestartOfTheService)
{
    auto put = std::async(std::launch::async, [&] { return alice.tarn({"put", "-r", "tree/", "/tree"}); });
    waitUntil([&] { return requests("PUT /service/v1/files") >= 120; });
    const auto port = service.port();
    service.kill();
    service.start(port);
    const auto result = put.get();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_THAT(result.err, HasSubstr("Stored 400 files"));
    EXPECT_EQ(alice.tarn({"get", "-r", "/tree/", "back"}).exitCode, 0);
    EXPECT_EQ(wholeFiles("back"), files);
}

TEST_F(Interrupted, PutTellsWhatIsMissingAndStoresNoHalves)
{
    auto put = std::async(std::launch::async, [&] {
        return alice.tarn({"--retries", "1", "put", "-r", "tree/", "/tree"});
    });
    waitUntil([&] { return service.errors().find("/files/tree/120") != std::string::npos; });
    service.kill();
    const auto result = put.get();
    EXPECT_EQ(result.exitCode, 8) << result.err;
    EXPECT_THAT(result.err, HasSubstr("were not tried"));
    EXPECT_LT(count(result.err, "\n"), 15u); // not one for each that was under way
    service.start();
    alice.set("TARN_ENDPOINT", service.url());
    ASSERT_EQ(alice.run("printf %s \"$1\" | tarn login alice", {token}).exitCode, 0);
    ASSERT_EQ(alice.tarn({"get", "-r", "/tree/", "back"}).exitCode, 0);
    const auto stored = wholeFiles("back");
    EXPECT_GT(stored, 0u);
    EXPECT_LT(stored, files);
    const auto again = alice.tarn({"put", "-r", "tree/", "/tree"});
    EXPECT_EQ(again.exitCode, 0) << again.err;
    EXPECT_EQ(alice.tarn({"get", "-r", "/tree/", "back"}).exitCode, 0);
    EXPECT_EQ(wholeFiles("back"), files);
}

TEST_F(Interrupted, ByASignalLeavesWholeFilesOnly)
{
    ASSERT_EQ(alice.tarn({"put", "-r", "-j", "16", "tree/", "/tree"}).exitCode, 0);
    auto get = std::async(std::launch::async,
                          [&] { return alice.run("echo $$ > pid && exec tarn get -r /tree/ back"); });
    waitUntil([&] { return arrived("back") > 20; });
    kill(static_cast<pid_t>(std::stoi(alice.read("pid"))), SIGINT);
    EXPECT_EQ(get.get().exitCode, 130);
    EXPECT_GT(wholeFiles("back"), 0u);
}

} // namespace
} // namespace tarncli::test
