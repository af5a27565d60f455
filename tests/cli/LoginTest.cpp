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

    /// All that is kept for later calls, but what undo needs.
    std::string kept() const
    {
        std::string text;
        if (fs::exists(shell.stateFolder()))
            for (const auto& [name, content] : contentsOf(shell.stateFolder()))
                if (!name.starts_with("undo/")) text += content;
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
    EXPECT_THAT(logIn("bob", token).err, HasSubstr("does not belong to the user \"bob\""));
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

TEST_F(LoginTest, LeavesTheSavedLoginAloneWhenTheEnvironmentNamesAnother)
{
    shell.set("TARN_TOKEN", token);
    EXPECT_THAT(shell.tarn({"ls"}).err, HasSubstr("TARN_USER"));
    shell.set("TARN_USER", "alice");
    EXPECT_EQ(shell.tarn({"mkdir", "/of-alice"}).exitCode, 0);
    EXPECT_EQ(kept(), "");
    shell.set("TARN_USER", "bob");
    EXPECT_EQ(shell.tarn({"ls"}).exitCode, 4); // the token is alice's
    shell.set("TARN_TOKEN", "");
    shell.set("TARN_USER", "");

    ASSERT_EQ(logIn("bob", service.addUser("bob")).exitCode, 0);
    const auto before = kept();
    const auto given = shell.run("TARN_USER=alice TARN_TOKEN=\"$1\" tarn ls", {token});
    EXPECT_EQ(given.out, "of-alice/\n") << given.err;
    EXPECT_EQ(kept(), before);
    EXPECT_EQ(shell.tarn({"ls"}).out, "");
    ASSERT_EQ(logIn("alice", token).exitCode, 0); // beside bob, not in his place
    EXPECT_EQ(shell.tarn({"ls"}).out, "of-alice/\n");
    EXPECT_EQ(shell.run("TARN_USER=bob tarn ls").out, "");
    EXPECT_EQ(shell.run("TARN_TOKEN=x tarn ls").exitCode, 4); // not the session that is kept
}

TEST_F(LoginTest, TellsWhoOneIsWhereAndFromWhere)
{
    const auto whoami = [&](const std::string& variables) {
        const auto result = shell.run(variables + " tarn whoami | tr -s ' '");
        return result.out + result.err;
    };
    EXPECT_EQ(shell.tarn({"whoami"}).exitCode, 4);
    EXPECT_THAT(whoami("TARN_USER=bob"),
                testing::AllOf(HasSubstr("user bob (TARN_USER)"), HasSubstr("tarn login bob")));
    ASSERT_EQ(logIn("alice", token).exitCode, 0);
    EXPECT_THAT(whoami(""),
                testing::AllOf(HasSubstr("user alice (the last login)"),
                               HasSubstr("service " + service.url() + " (TARN_ENDPOINT)"),
                               HasSubstr("login by session, renewed by token (/"), Not(HasSubstr(token))));
    EXPECT_THAT(whoami("TARN_TOKEN=x"), HasSubstr("by token, for each command (TARN_TOKEN)"));
    EXPECT_THAT(whoami("TARN_ENDPOINT="), HasSubstr("service the local store in /"));
    EXPECT_FALSE(fs::exists(shell.home() / ".local/share/tarn")); // and does not start it
}

/// A service with a certificate that no authority of the system has signed.
TEST(Authorities, AreThoseThatTheUserNames)
{
    Shell shell;
    ASSERT_EQ(
        shell
            .run(
                "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 -subj /CN=test "
                "-addext subjectAltName=IP:127.0.0.1 -keyout key.pem -out ca.pem")
            .exitCode,
        0);
    TarndProcess service({"--tls-cert", shell.work() / "ca.pem", "--tls-key", shell.work() / "key.pem"});
    service.start();
    shell.set("TARN_ENDPOINT", service.url());
    shell.set("TARN_USER", "alice");
    shell.set("TARN_TOKEN", service.addUser("alice"));
    const auto unknown = shell.tarn({"ls"});
    EXPECT_EQ(unknown.exitCode, 7);
    EXPECT_THAT(unknown.err, HasSubstr("--ca-file"));
    EXPECT_EQ(shell.tarn({"--ca-file", "ca.pem", "ls"}).exitCode, 0);
    EXPECT_EQ(shell.run("SSL_CERT_FILE=$PWD/ca.pem tarn ls").exitCode, 0);
    EXPECT_THAT(shell.tarn({"--ca-file", "none.pem", "ls"}).err, HasSubstr("none.pem: No such file"));
    fs::create_directories(shell.home() / ".config/tarn");
    std::ofstream(shell.home() / ".config/tarn/config.toml")
        << "[profiles.work]\nendpoint = \"" << service.url() << "\"\nca_file = \""
        << (shell.work() / "ca.pem").string() << "\"\n";
    EXPECT_EQ(shell.tarn({"--profile", "work", "ls"}).exitCode, 0);
    const auto commanded =
        shell.run("token=$TARN_TOKEN; unset TARN_TOKEN TARN_ENDPOINT; tarn --ca-file ca.pem profile add "
                  "safe $1 --user alice --token-command \"echo $token; echo more\" && "
                  "tarn --profile safe ls && grep -rlF $token ~/.local",
                  {service.url()});
    EXPECT_EQ(commanded.exitCode, 1) << "the token is kept in " << commanded.out << commanded.err;
    EXPECT_EQ(commanded.out, "");
    EXPECT_EQ(shell.tarn({"--ca-file", "ca.pem", "--proxy", "http://127.0.0.1:1", "ls"}).exitCode, 7);
}

} // namespace
} // namespace tarncli::test
