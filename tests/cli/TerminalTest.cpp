// At a terminal: the token is not shown, and the bar comes and goes.
#include "tests/cli/Shell.h"
#include "tests/support/FaultServer.h"

#include <gmock/gmock.h>
#include <latch>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tarncli::test {
namespace {

using connector::host::test::Ending;
using connector::host::test::FaultServer;
using connector::host::test::truthOf;
using tarnd::test::TarndProcess;
using testing::HasSubstr;
using testing::Not;

/// A program at a terminal of its own.
class Terminal {
public:
    explicit Terminal(std::vector<std::string> commandLine, int columns = 100)
    {
        std::vector<char*> arguments;
        for (auto& argument : commandLine)
            arguments.push_back(argument.data());
        arguments.push_back(nullptr);
        winsize size{24, static_cast<unsigned short>(columns), 0, 0};
        child = forkpty(&fd, nullptr, nullptr, &size);
        if (child == 0) {
            alarm(120); // outlasts exec: what hangs is ended
            execv(arguments[0], arguments.data());
            _exit(127);
        }
    }

    ~Terminal()
    {
        close(fd);
        if (child > 0) finish();
    }

    void type(const std::string& text) const
    {
        ASSERT_EQ(write(fd, text.data(), text.size()), ssize_t(text.size()));
    }

    /// Reads until `text` has been shown, or the program has ended, or nothing came for long.
    bool shows(const std::string& text)
    {
        char buffer[4096];
        while (shown.find(text) == std::string::npos) {
            pollfd waiting{fd, POLLIN, 0};
            if (poll(&waiting, 1, 30'000) <= 0) return false;
            const auto count = read(fd, buffer, sizeof buffer);
            if (count <= 0) return false;
            shown.append(buffer, static_cast<std::size_t>(count));
        }
        return true;
    }

    int finish()
    {
        shows("(never shown)");
        int status = 0;
        waitpid(child, &status, 0);
        child = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    std::string shown;

private:
    int fd = -1;
    pid_t child = -1;
};

class TerminalTest : public testing::Test {
protected:
    TerminalTest()
    {
        service.start();
        token = service.addUser("alice");
        shell.set("TARN_ENDPOINT", service.url());
    }

    TarndProcess service;
    Shell shell;
    std::string token;
};

TEST_F(TerminalTest, AsksForTheTokenWithoutShowingIt)
{
    Terminal terminal(shell.commandLine("exec tarn login alice"));
    ASSERT_TRUE(terminal.shows("Token of alice: "));
    terminal.type(token + "\n");
    EXPECT_EQ(terminal.finish(), 0) << terminal.shown;
    EXPECT_THAT(terminal.shown, Not(HasSubstr(token)));
}

TEST_F(TerminalTest, CtrlCAtThePromptGivesTheEchoBack)
{
    Terminal terminal(shell.commandLine("trap : INT; tarn login alice; echo code $?; stty"));
    ASSERT_TRUE(terminal.shows("Token of alice: "));
    terminal.type("\x03");
    EXPECT_EQ(terminal.finish(), 0);
    EXPECT_THAT(terminal.shown, HasSubstr("code 130"));
    EXPECT_THAT(terminal.shown, Not(HasSubstr("-echo ")));
}

TEST_F(TerminalTest, ShowsHelpAndProseAsWideAsItIs)
{
    shell.set("TARN_USER", "alice");
    shell.set("TARN_TOKEN", token);
    for (const auto& [columns, first] : {std::pair(80, "tarn --help && "), std::pair(40, "")}) {
        Terminal terminal(shell.commandLine(std::string(first) + "tarn help sync && tarn help find && tarn "
                                                                 "explain / someone.else && tarn doctor"),
                          columns);
        EXPECT_EQ(terminal.finish(), 0) << terminal.shown;
        std::istringstream lines(terminal.shown);
        for (std::string line; std::getline(lines, line);) // "\r\n"; examples are to be copied
            EXPECT_TRUE(static_cast<int>(line.size()) <= columns + 1 || line.starts_with("  tarn ")) << line;
    }
}

TEST_F(TerminalTest, ShowsABarWhileItStoresAndTakesItAway)
{
    std::latch shown(1);
    const FaultServer server({"answers late", Ending::truth,
                              [&](auto& connection, const auto& reply) {
                                  shown.wait();
                                  connection.send(reply.head + reply.body);
                              }},
                             truthOf(service.port()),
                             [](const std::string& request) { return request.starts_with("PUT "); });
    shell.set("TARN_ENDPOINT", server.url());
    shell.set("TARN_USER", "alice");
    shell.set("TARN_TOKEN", token);
    Terminal terminal(shell.commandLine("truncate -s 3M big && exec tarn put big /big"));
    EXPECT_TRUE(terminal.shows("of 3.0 MiB")) << terminal.shown;
    shown.count_down();
    EXPECT_EQ(terminal.finish(), 0) << terminal.shown;
    const auto lastBar = terminal.shown.rfind("Storing  ");
    EXPECT_NE(terminal.shown.find("\r\033[K", lastBar), std::string::npos);
    EXPECT_THAT(shell.tarn({"put", "-f", "big", "/big"}).err, Not(HasSubstr("\033")));
}

} // namespace
} // namespace tarncli::test
