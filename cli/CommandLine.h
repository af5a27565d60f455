#pragma once

#include "cli/verbs/Verbs.h"

#include <functional>
#include <string>

namespace tarncli {

/// What the command line asks for.
struct Command {
    ConnectionOptions connection;
    bool json = false;
    Output::Verbosity verbosity = Output::Verbosity::normal;
    std::function<void(const Invocation&)> verb;

    std::string help;                     ///< not empty: show this instead
    ExitCode helpExitCode = ExitCode::ok; ///< usage when help was not asked for
};

/// @throws Failure (usage) with a sentence on the first thing that is wrong
Command parseCommandLine(int argc, char** argv);

} // namespace tarncli
