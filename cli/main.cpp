#include "cli/CommandLine.h"
#include "cli/machine/StandardStreams.h"
#include "cli/remote/RemotePath.h"
#include "cli/remote/Rights.h"
#include "cli/remote/StoredNames.h"
#include "cli/terminal/Interrupts.h"
#include "cli/verbs/Verbs.h"

#include <algorithm>
#include <cstdio>
#include <malloc.h>
#include <string_view>

namespace {

using namespace tarncli;

int showHelp(const Command& command)
{
    if (command.helpExitCode != ExitCode::ok) {
        std::fputs(command.help.c_str(), stderr);
        return static_cast<int>(command.helpExitCode);
    }
    Output out(Output::Format::text, Output::Verbosity::normal);
    try {
        out.data(command.help);
        return 0;
    } catch (const Failure& failure) {
        out.error(failure);
        return static_cast<int>(failure.code());
    }
}

/// How the profile reads paths.
void readPathsAs(const Service& service)
{
    setDefaultFolder(service.folder);
    encodeNames(service.encodeNames);
}

/// One who was refused hears what is allowed there.
Failure withRights(const Failure& failure, const Command& command, Output& out)
{
    if (failure.code() != ExitCode::notAllowed || failure.item().empty()) return failure;
    const auto sentence = rightsSentence(command.connection, out, failure.item());
    return sentence.empty() ? failure : failure.saying(failure.what() + (" " + sentence));
}

int run(const Command& command)
{
    Output out(command.format, command.verbosity);
    try {
        readPathsAs(serviceFor(command.connection.service));
    } catch (const std::exception&) { // a verb that needs the service tells it, and others need it not
    }
    try {
        command.verb({command.connection, out, command.commands});
        return 0;
    } catch (const std::exception&) {
        const auto failure = withRights(explain(std::current_exception()), command, out);
        out.error(failure);
        return static_cast<int>(failure.code());
    }
}

} // namespace

int main(int argc, char** argv)
{
    reserveStandardStreams();
    // One heap for all threads: each further one grows page by page, with a call of the kernel for every page.
    mallopt(M_ARENA_MAX, 1);
    // What contents pass through comes from there again and again, and the kernel would take it back each time.
    mallopt(M_MMAP_THRESHOLD, 1024 * 1024);
    mallopt(M_TRIM_THRESHOLD, 2 * 1024 * 1024);
    // Before any thread begins: threads inherit the signals that are blocked here.
    Command command;
    try {
        handleInterrupts();
        command = parseCommandLine(allVerbs(), argc, argv);
    } catch (const Failure& failure) {
        // Nothing was understood, but a script that asked for JSON must be able to read even this.
        const bool json = std::any_of(argv, argv + argc, [](std::string_view word) {
            return word == "--json" || word == "--json-lines";
        });
        Output(json ? Output::Format::json : Output::Format::text, Output::Verbosity::normal).error(failure);
        return static_cast<int>(failure.code());
    }
    return command.verb ? run(command) : showHelp(command);
}
