#pragma once

#include "cli/verbs/Verb.h"

#include <functional>
#include <string>
#include <vector>

namespace tarncli {

/// What the command line asks for.
struct Command {
    ConnectionOptions connection;
    Output::Format format = Output::Format::text;
    Output::Verbosity verbosity = Output::Verbosity::normal;
    std::function<void(const Invocation&)> verb;
    CommandTree commands;

    std::string help;                     ///< not empty: show this instead
    ExitCode helpExitCode = ExitCode::ok; ///< usage when help was not asked for
};

/// Fills in what the verb that is named takes. @throws Failure (usage) with a sentence on the first thing that is wrong
Command parseCommandLine(std::vector<Verb> verbs, int argc, const char* const* argv);

} // namespace tarncli
