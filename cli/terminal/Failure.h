#pragma once

#include "cli/terminal/ExitCode.h"

#include <stdexcept>
#include <string>

namespace tarncli {

/// A failure as the user sees it: one sentence that says what to do, and the exit code.
class Failure : public std::runtime_error {
public:
    Failure(ExitCode exitCode, const std::string& sentence) : std::runtime_error(sentence), exit(exitCode) {}

    ExitCode code() const { return exit; }

private:
    ExitCode exit;
};

inline Failure usageError(const std::string& sentence)
{
    return {ExitCode::usage, sentence};
}

} // namespace tarncli
