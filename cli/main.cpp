#include "cli/CommandLine.h"
#include "cli/terminal/Interrupts.h"
#include "cli/verbs/Verbs.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

namespace {

using namespace tarncli;

int showHelp(const Command& command)
{
    std::fputs(command.help.c_str(), command.helpExitCode == ExitCode::ok ? stdout : stderr);
    return static_cast<int>(command.helpExitCode);
}

int run(const Command& command)
{
    Output out(command.json, command.verbosity);
    try {
        command.verb({command.connection, out, command.commands});
        return 0;
    } catch (const std::exception&) {
        const auto failure = explain(std::current_exception());
        out.error(failure);
        return static_cast<int>(failure.code());
    }
}

} // namespace

int main(int argc, char** argv)
{
    // First: threads inherit the signals that are blocked here.
    handleInterrupts();
    Command command;
    try {
        command = parseCommandLine(allVerbs(), argc, argv);
    } catch (const Failure& failure) {
        // Nothing was understood, but a script that asked for JSON must be able to read even this.
        const bool json = std::find(argv, argv + argc, std::string_view("--json")) != argv + argc;
        Output(json, Output::Verbosity::normal).error(failure);
        return static_cast<int>(failure.code());
    }
    return command.verb ? run(command) : showHelp(command);
}
