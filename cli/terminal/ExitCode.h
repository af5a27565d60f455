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

} // namespace tarncli
