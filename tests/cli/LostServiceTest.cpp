// A service that dies in the middle: what is there is whole, the rest is told, and the exit code says so.
#include "tests/cli/Shell.h"

#include <gmock/gmock.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <future>
#include <thread>

namespace tarncli::test {
namespace {

namespace fs = std::filesystem;
using tarnd::test::TarndProcess;
using testing::HasSubstr;

constexpr int files = 600;

class LostServiceTest : public testing::Test {
protected:
    LostServiceTest()
    {
        service.start();
        token = alice.logIn(service, "alice");
        for (int i = 0; i < files; ++i)
            alice.write("tree/" + std::to_string(i), std::string(20'000, static_cast<char>('a' + i % 26)));
    }

    static void waitUntil(const std::function<bool()>& condition)
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (!condition() && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
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

    void restart()
    {
        service.start();
        alice.set("TARN_ENDPOINT", service.url());
        ASSERT_EQ(alice.run("printf %s \"$1\" | tarn login alice", {token}).exitCode, 0);
    }

    TarndProcess service{{"--verbose"}};
    Shell alice;
    std::string token;
};

TEST_F(LostServiceTest, PutTellsWhatIsMissingAndStoresNoHalves)
{
    auto put = std::async(std::launch::async, [&] { return alice.tarn({"put", "-r", "tree", "/tree"}); });
    waitUntil([&] { return service.errors().find("/files/tree/120") != std::string::npos; });
    service.kill();
    const auto result = put.get();
    EXPECT_EQ(result.exitCode, 8) << result.err;
    EXPECT_THAT(result.err, HasSubstr("were not tried"));
    EXPECT_LT(std::count(result.err.begin(), result.err.end(), '\n'), 20);
    restart();
    ASSERT_EQ(alice.tarn({"get", "-r", "/tree", "back"}).exitCode, 0);
    const auto stored = wholeFiles("back");
    EXPECT_GT(stored, 0u);
    EXPECT_LT(stored, static_cast<std::size_t>(files));
    EXPECT_EQ(alice.tarn({"put", "-r", "--skip-existing", "-q", "tree/.", "/tree"}).exitCode, 0);
    EXPECT_EQ(alice.tarn({"get", "-r", "-f", "/tree", "back"}).exitCode, 0);
    EXPECT_EQ(wholeFiles("back/tree"), static_cast<std::size_t>(files));
}

TEST_F(LostServiceTest, AnInterruptLeavesWholeFilesOnly)
{
    ASSERT_EQ(alice.tarn({"put", "-r", "-j", "16", "tree", "/tree"}).exitCode, 0);
    auto get = std::async(std::launch::async,
                          [&] { return alice.run("echo $$ > pid && exec tarn get -r /tree back"); });
    waitUntil([&] { return arrived("back") > 20; });
    kill(static_cast<pid_t>(std::stoi(alice.read("pid"))), SIGINT);
    EXPECT_EQ(get.get().exitCode, 130);
    EXPECT_GT(wholeFiles("back"), 0u);
}

} // namespace
} // namespace tarncli::test
