// Who is logged in where: a wrong token, a wrong name, a token that must not be left lying about.
#include "tests/cli/Shell.h"

#include <fstream>
#include <gmock/gmock.h>

namespace tarncli::test {
namespace {

namespace fs = std::filesystem;
using tarnd::test::TarndProcess;
using testing::HasSubstr;
using testing::Not;

class LoginTest : public testing::Test {
protected:
    LoginTest()
    {
        service.start();
        token = service.addUser("alice");
        shell.set("TARN_ENDPOINT", service.url());
    }

    CommandResult logIn(const std::string& user, const std::string& with, const std::string& flags = "") const
    {
        return shell.run("printf '%s\\n' \"$2\" | tarn login " + flags + " \"$1\"", {user, with});
    }

    /// All that is kept for later calls.
    std::string kept() const
    {
        std::string text;
        if (fs::exists(shell.stateFolder()))
            for (const auto& [name, content] : contentsOf(shell.stateFolder()))
                text += content;
        return text;
    }

    TarndProcess service;
    Shell shell;
    std::string token;
};

TEST_F(LoginTest, KeepsSessionAndTokenUntilLogout)
{
    EXPECT_EQ(shell.tarn({"ls"}).exitCode, 4);
    EXPECT_EQ(logIn("alice", token).exitCode, 0);
    EXPECT_THAT(kept(), HasSubstr(token));
    EXPECT_EQ(shell.tarn({"ls"}).exitCode, 0);
    EXPECT_THAT(shell.tarn({"ping"}).out, HasSubstr("to alice"));
    const auto session = kept();
    EXPECT_EQ(shell.tarn({"logout"}).exitCode, 0);
    EXPECT_EQ(kept(), "");
    EXPECT_EQ(shell.tarn({"ls"}).exitCode, 4);
    EXPECT_EQ(shell.tarn({"logout"}).exitCode, 0);
}

TEST_F(LoginTest, RefusesAWrongTokenAndAnotherUsersName)
{
    EXPECT_EQ(logIn("alice", "0123").exitCode, 4);
    EXPECT_EQ(logIn("alice", "").exitCode, 2);
    service.addUser("bob");
    EXPECT_THAT(logIn("bob", token).err, HasSubstr("not that of the user \"bob\""));
    EXPECT_EQ(logIn("bob", token).exitCode, 4);
    EXPECT_EQ(kept(), "");
    EXPECT_EQ(shell.tarn({"login"}).exitCode, 2);
}

TEST_F(LoginTest, ForgetsTheTokenWhenTold)
{
    EXPECT_EQ(logIn("alice", token, "--no-store-token").exitCode, 0);
    EXPECT_THAT(kept(), Not(HasSubstr(token)));
    EXPECT_EQ(shell.tarn({"ls"}).exitCode, 0);
    service.run({"user", "rotate", "alice"}); // ends the session
    const auto ended = shell.tarn({"ls"});
    EXPECT_EQ(ended.exitCode, 4);
    EXPECT_THAT(ended.err, HasSubstr("tarn login alice"));
}

TEST_F(LoginTest, TakesUserAndTokenFromTheEnvironment)
{
    shell.set("TARN_TOKEN", token);
    EXPECT_THAT(shell.tarn({"ls"}).err, HasSubstr("TARN_USER"));
    shell.set("TARN_USER", "alice");
    EXPECT_EQ(shell.tarn({"ls"}).exitCode, 0);
    EXPECT_THAT(kept(), Not(HasSubstr(token)));
    shell.set("TARN_USER", "bob");
    EXPECT_EQ(shell.tarn({"ls"}).exitCode, 4);
}

TEST_F(LoginTest, TakesUserAndEndpointFromAProfile)
{
    const auto config = shell.home() / ".config/tarn";
    fs::create_directories(config);
    std::ofstream(config / "config.toml")
        << "[profiles.work]\nendpoint = \"" << service.url() << "\"\nuser = \"alice\"\n";
    shell.set("TARN_ENDPOINT", "");
    EXPECT_EQ(shell.run("printf %s \"$1\" | tarn --profile work login", {token}).exitCode, 0);
    EXPECT_THAT(shell.tarn({"--profile", "work", "ping"}).out, HasSubstr(service.url()));
    EXPECT_EQ(shell.tarn({"--endpoint", service.url(), "ls"}).exitCode,
              4); // another entry than the profile's
}

} // namespace
} // namespace tarncli::test
