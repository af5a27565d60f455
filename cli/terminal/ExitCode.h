#pragma once

namespace tarncli {

/// What `tarn` tells the shell. Scripts rely on the numbers.
enum class ExitCode : int {
    ok = 0,
    failure = 1, ///< anything that has no number of its own
    usage = 2,
    notFound = 3,
    notLoggedIn = 4,
    notAllowed = 5,
    conflict = 6, ///< it exists already, or is not in the state the request needs
    unreachable = 7,
    partlyDone = 8,    ///< some items were dealt with, others were not
    interrupted = 130, ///< Ctrl-C
};

constexpr const char* wordFor(ExitCode code)
{
    switch (code) {
    case ExitCode::ok:
        return "ok";
    case ExitCode::usage:
        return "usage";
    case ExitCode::notFound:
        return "notFound";
    case ExitCode::notLoggedIn:
        return "notLoggedIn";
    case ExitCode::notAllowed:
        return "notAllowed";
    case ExitCode::conflict:
        return "conflict";
    case ExitCode::unreachable:
        return "unreachable";
    case ExitCode::partlyDone:
        return "partlyDone";
    case ExitCode::interrupted:
        return "interrupted";
    case ExitCode::failure:
        break;
    }
    return "failure";
}

} // namespace tarncli
