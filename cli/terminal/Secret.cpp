#include "cli/terminal/Secret.h"

#include "cli/terminal/Failure.h"
#include "cli/terminal/Interrupts.h"

#include <cstdio>
#include <iostream>
#include <optional>
#include <termios.h>
#include <unistd.h>

namespace tarncli {

namespace {

/// The terminal shows nothing that is typed while this lives, also when it ends by Ctrl-C.
class EchoOff {
public:
    EchoOff()
    {
        tcgetattr(STDIN_FILENO, &before);
        termios silent = before;
        silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        silent.c_lflag |= ECHONL;
        // Before the echo goes, so that Ctrl-C finds it at any moment.
        guard.emplace([this] { restore(); });
        tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent); // drops what was typed before the prompt
    }

    ~EchoOff() { restore(); }

private:
    void restore() const { tcsetattr(STDIN_FILENO, TCSANOW, &before); }

    termios before{};
    std::optional<InterruptGuard> guard;
};

} // namespace

std::string readSecret(const std::string& prompt)
{
    std::optional<EchoOff> echoOff;
    if (isatty(STDIN_FILENO) != 0) {
        echoOff.emplace();
        std::fputs(prompt.c_str(), stderr);
    }
    std::string line;
    std::getline(std::cin, line);
    const auto first = line.find_first_not_of(" \t\r");
    if (first == std::string::npos)
        throw usageError(
            "No token was given; type it at the prompt, or pass it on standard input or in TARN_TOKEN.");
    return line.substr(first, line.find_last_not_of(" \t\r") - first + 1);
}

} // namespace tarncli
