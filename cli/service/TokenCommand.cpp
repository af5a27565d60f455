#include "cli/service/TokenCommand.h"

#include "cli/machine/SystemError.h"
#include "cli/terminal/Failure.h"
#include "cli/terminal/Text.h"

#include <array>
#include <cstdio>
#include <sys/wait.h>

namespace tarncli {

namespace {

Failure failed(const std::string& command, const std::string& why)
{
    return {ExitCode::notLoggedIn, "The profile's token_command \"" + escaped(command) + "\" " + why};
}

} // namespace

std::string tokenFrom(const std::string& command)
{
    std::FILE* output = popen(command.c_str(), "re");
    if (output == nullptr) throwErrno("Could not run", command);
    std::string text;
    std::array<char, 4096> part{};
    // To its end, also beyond the first line: a command that cannot write would fail.
    while (const auto count = std::fread(part.data(), 1, part.size(), output))
        text.append(part.data(), count);
    const int status = pclose(output);
    if (status != 0)
        throw failed(command, WIFEXITED(status)
                                  ? "ended with exit code " + std::to_string(WEXITSTATUS(status)) + "."
                                  : "was ended by a signal.");
    const auto line = text.substr(0, text.find_first_of("\r\n"));
    if (line.empty()) throw failed(command, "wrote no token.");
    return line;
}

} // namespace tarncli
