#pragma once

#include "cli/terminal/ExitCode.h"

#include <stdexcept>
#include <string>

namespace tarncli {

/// A failure as the user sees it: one sentence that says what to do, the exit code, and for scripts what kind it is.
class Failure : public std::runtime_error {
public:
    /// @param whatKind  static text, where the exit code says too little; null: the word for the exit code
    Failure(ExitCode exitCode, const std::string& sentence, const char* whatKind = nullptr)
        : std::runtime_error(sentence), exit(exitCode), ownKind(whatKind ? whatKind : wordFor(exitCode))
    {
    }

    ExitCode code() const { return exit; }

    /// One word: "notFound", "outOfSpace".
    const char* kind() const { return ownKind; }

    /// The same failure in other words.
    Failure saying(const std::string& sentence) const { return {exit, sentence, ownKind}; }

private:
    ExitCode exit;
    const char* ownKind;
};

inline Failure usageError(const std::string& sentence)
{
    return {ExitCode::usage, sentence};
}

} // namespace tarncli
