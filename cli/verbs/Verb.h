#pragma once

#include "cli/service/Connection.h"
#include "cli/terminal/Output.h"

#include <functional>
#include <string>
#include <variant>
#include <vector>

namespace tarncli {

inline constexpr unsigned defaultJobs = 4;

/// What every verb gets when it runs.
struct Invocation {
    ConnectionOptions connection;
    Output& out;

    /// A session with the service. @throws Failure (notLoggedIn, unreachable, …)
    /// @param jobs  transfers at the same time
    Connection connect(unsigned jobs = defaultJobs) const
    {
        auto options = connection;
        options.inFlight = jobs;
        Connection opened(options, out);
        opened.resume();
        return opened;
    }
};

/// What the parser checks.
struct OptionRules {
    bool required = false;
    const char* valueName = "";            ///< of an option, for the help: "VERSION"
    std::vector<std::string> choices = {}; ///< empty: any text
    unsigned most = 0;                     ///< the largest number, or the longest list; 0: no limit
};

/// One thing that a verb takes: an argument when its name is in capitals, an option when it begins with '-'.
struct Option {
    const char* names; ///< "PATH", "--version" or "-r,--recursive"
    /// Filled in when it is given. Lives as long as the verb.
    std::variant<bool*, unsigned*, std::string*, std::vector<std::string>*> target;
    const char* help;
    OptionRules rules = {};
};

/// `put` and `get` work on several files at a time.
inline Option jobsOption(unsigned& jobs)
{
    return {"-j,--jobs", &jobs, "Transfers at the same time; default: 4", {.valueName = "N", .most = 64}};
}

/// A verb as the command line knows it. All there is to say about it stands in the file named after it.
struct Verb {
    const char* name;
    const char* summary;
    const char* examples; ///< lines indented by two spaces; then what else the help should tell
    std::vector<Option> takes;
    /// Does the work and writes the result. @throws what explain() turns into a Failure
    std::function<void(const Invocation&)> run;
};

} // namespace tarncli
