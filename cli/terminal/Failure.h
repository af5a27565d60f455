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
    Failure saying(const std::string& sentence) const
    {
        Failure same(exit, sentence, ownKind);
        same.ownItem = ownItem;
        return same;
    }

    /// The same failure, of this item in the service.
    Failure on(const std::string& storedPath) const
    {
        auto same = *this;
        same.ownItem = storedPath;
        return same;
    }

    /// As RemotePath::stored() has it; empty: of none, or of several.
    const std::string& item() const { return ownItem; }

private:
    ExitCode exit;
    const char* ownKind;
    std::string ownItem = {};
};

/// A change that was not made, for all that had been sent, or was taken back.
class NothingDone : public Failure {
public:
    using Failure::Failure;
};

inline Failure usageError(const std::string& sentence)
{
    return {ExitCode::usage, sentence};
}

} // namespace tarncli
