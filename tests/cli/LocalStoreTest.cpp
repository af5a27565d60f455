// A fresh machine: no server, no account. The store starts by itself, once, and goes when told.
#include "tests/cli/Shell.h"

#include <gmock/gmock.h>
#include <nlohmann/json.hpp>

#include <chrono>
#include <csignal>
#include <fstream>
#include <sys/stat.h>
#include <thread>

namespace tarncli::test {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

json status(const Shell& shell)
{
    return json::parse(shell.tarn({"--json", "local", "status"}).out);
}

int processesWith(const std::string& text)
{
    int found = 0;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        std::ifstream file(entry.path() / "cmdline");
        std::string line;
        std::getline(file, line); // empty for a process that has just ended: reading its file fails
        found += line.starts_with("/") && line.find(text) != std::string::npos &&
                 line.find("serve") != std::string::npos;
    }
    return found;
}

/// Whether this many servers run below the shell's home, or soon do: one that found the lock taken has yet to end.
bool serversBecome(const Shell& shell, int count)
{
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (processesWith(shell.home()) != count) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

TEST(LocalStore, StoresOnAMachineWithNothingOnIt)
{
    Shell shell;
    shell.write("notes.md", "notes");
    const auto first = shell.tarn({"put", "notes.md", "/notes.md"});
    EXPECT_EQ(first.exitCode, 0) << first.err;
    EXPECT_THAT(first.err, testing::HasSubstr("Starting the local store"));
    EXPECT_EQ(shell.tarn({"cat", "/notes.md"}).out, "notes");

    const auto link = shell.tarn({"link", "/notes.md"}).out;

    struct stat info {};

    ASSERT_EQ(::stat((shell.home() / ".local/share/tarn/local.json").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);

    EXPECT_EQ(shell.tarn({"local", "stop"}).exitCode, 0);
    EXPECT_TRUE(serversBecome(shell, 0));
    EXPECT_EQ(status(shell)["running"], false);
    EXPECT_EQ(shell.tarn({"cat", "/notes.md"}).out, "notes"); // starts again, over the same data
    EXPECT_EQ(shell.tarn({"link", "/notes.md"}).out, link) << "so that it still opens";
}

TEST(LocalStore, TenAtOnceStartOne)
{
    Shell shell;
    const auto result =
        shell.run("for i in 0 1 2 3 4 5 6 7 8 9; do echo $i > $i; tarn put $i /$i & done; wait; tarn ls");
    EXPECT_EQ(result.out, "0\n1\n2\n3\n4\n5\n6\n7\n8\n9\n") << result.err;
    EXPECT_TRUE(serversBecome(shell, 1));
}

TEST(LocalStore, StartsAnewAfterACrash)
{
    Shell shell;
    ASSERT_EQ(shell.run("echo x | tarn put - /x").exitCode, 0);
    const pid_t pid = status(shell)["pid"];
    kill(pid, SIGKILL); // and no wait: what is dying still accepts connections
    EXPECT_EQ(shell.tarn({"cat", "/x"}).out, "x\n");
    EXPECT_NE(status(shell)["pid"], pid);

    ASSERT_EQ(shell.tarn({"local", "stop"}).exitCode, 0);
    tarnd::test::TarndProcess taken;
    taken.start();
    std::ofstream(shell.home() / ".local/share/tarn/lock")
        << json{{"pid", getpid()}, {"url", taken.url()}}; // lives, and is not what held the lock
    const auto moved = shell.tarn({"cat", "/x"});
    EXPECT_EQ(moved.out, "x\n");
    EXPECT_THAT(moved.err, testing::HasSubstr("127.0.0.1:" + std::to_string(taken.port()) + " again"));
}

TEST(LocalStore, IsFoundByItsLockWhateverBecameOfWhoStartedIt)
{
    Shell shell;
    ASSERT_EQ(shell.run("echo x | tarn put - /x").exitCode, 0);
    const auto before = status(shell)["pid"];
    fs::remove(shell.home() / ".local/share/tarn/local.json");
    const auto found = shell.tarn({"cat", "/x"});
    EXPECT_EQ(found.out, "x\n") << found.err;
    EXPECT_EQ(status(shell)["pid"], before);

    const auto interrupted =
        shell.run("for after in 0.01 0.02 0.03 0.05 0.07 0.1 0.15; do tarn local stop; "
                  "timeout -s INT $after tarn ls >ls; tarn ls >ls || echo \"after $after\"; done");
    EXPECT_EQ(interrupted.out, "") << interrupted.err;
    EXPECT_TRUE(serversBecome(shell, 1));
}

TEST(LocalStore, SaysWhyItDoesNotStart)
{
    Shell shell;
    fs::create_directories(shell.home() / ".local/share/tarn");
    std::ofstream(shell.home() / ".local/share/tarn/contents") << "in the way";
    const auto result = shell.tarn({"ls"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.err, testing::HasSubstr("contents: File exists"));
    EXPECT_TRUE(serversBecome(shell, 0));
}

} // namespace
} // namespace tarncli::test
