// A session that ends while many files are on their way: renewed once for all,
// nothing lost, nothing sent twice.
#include "tests/cli/Shell.h"

#include <gmock/gmock.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <future>
#include <sys/stat.h>
#include <thread>

namespace tarncli::test {
namespace {

namespace fs = std::filesystem;
using tarnd::test::TarndProcess;

std::size_t count(const std::string& text, const std::string& part)
{
    std::size_t found = 0;
    for (auto at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        ++found;
    return found;
}

constexpr int files = 400;

class EndedSessionTest : public testing::Test {
protected:
    EndedSessionTest()
    {
        service.start();
        token = alice.logIn(service, "alice");
        for (int i = 0; i < files; ++i)
            alice.write("tree/" + std::to_string(i), std::string(1000, static_cast<char>(i)));
    }

    std::size_t logins() const { return count(service.errors(), "/service/v1/login"); }

    /// Returns once the service has had this many requests of the kind.
    void waitFor(const std::string& request, std::size_t times) const
    {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
        while (count(service.errors(), request) < times && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }

    /// Ends alice's session behind her back: another shell logs out with a copy of what she keeps.
    void endSession() const
    {
        Shell thief;
        thief.set("TARN_ENDPOINT", service.url());
        fs::create_directories(thief.stateFolder().parent_path());
        fs::copy(alice.stateFolder(), thief.stateFolder(), fs::copy_options::recursive);
        ASSERT_EQ(thief.tarn({"logout"}).exitCode, 0);
    }

    TarndProcess service{{"--verbose"}};
    Shell alice;
    std::string token;
};

TEST_F(EndedSessionTest, IsRenewedBeforeTheFirstFile)
{
    endSession();
    const auto result = alice.tarn({"put", "-r", "-j", "16", "tree", "/tree"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(logins(), 2u);
}

TEST_F(EndedSessionTest, IsRenewedOnceInTheMiddleAndEveryFileArrives)
{
    auto put = std::async(std::launch::async, [&] {
        return alice.tarn({"put", "-r", "-j", "8", "tree", "/tree"});
    });
    waitFor("PUT /service/v1/files", 20);
    endSession();
    const auto result = put.get();
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_EQ(logins(), 2u);
    EXPECT_EQ(alice.tarn({"get", "-r", "/tree", "back"}).exitCode, 0);
    EXPECT_EQ(contentsOf(alice.work() / "tree"), contentsOf(alice.work() / "back"));
}

TEST_F(EndedSessionTest, EndsWhileStandardInputIsReadWhichIsNotLost)
{
    const auto pipe = alice.work() / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    auto put = std::async(std::launch::async, [&] { return alice.run("exec tarn put - /input <pipe"); });
    std::ofstream input(pipe);
    waitFor("GET /service/v1/filesystem/input", 1);
    endSession();
    input << "all of it";
    input.close();
    EXPECT_EQ(put.get().exitCode, 0);
    EXPECT_EQ(logins(), 2u);
    EXPECT_EQ(alice.tarn({"cat", "/input"}).out, "all of it");
}

TEST_F(EndedSessionTest, WithoutAValidTokenStopsAndSaysSo)
{
    service.run({"user", "rotate", "alice"});
    const auto result = alice.tarn({"put", "-r", "-j", "4", "tree", "/tree"});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_THAT(result.err, testing::HasSubstr("tarn login"));
    EXPECT_LT(count(result.err, "\n"), 5u); // not a line per file
}

} // namespace
} // namespace tarncli::test
