#pragma once

#include "cli/service/Connection.h"
#include "cli/terminal/Output.h"

#include <functional>
#include <string>
#include <variant>
#include <vector>

namespace tarncli {

struct CommandTree;

/// What every verb gets when it runs.
struct Invocation {
    ConnectionOptions connection;
    Output& out;
    const CommandTree& commands;

    /// A session with the service. @throws Failure (notLoggedIn, unreachable, …)
    /// @param jobs            transfers at the same time; 0: not told
    /// @param connectionsEach  that one of them holds at the same time
    Connection connect(unsigned jobs = 0, unsigned connectionsEach = 1) const
    {
        auto options = connection;
        options.jobs = jobs;
        options.connectionsEach = connectionsEach;
        Connection opened(options, out);
        opened.resume();
        return opened;
    }
};

/// What a word on the command line is, for those who complete it.
enum class Words { any, verb, local, remote, either, localThenRemote, remoteThenLocal };

/// What the parser checks.
struct OptionRules {
    bool required = false;
    const char* valueName = "";            ///< of an option, for the help: "VERSION"
    std::vector<std::string> choices = {}; ///< empty: any text
    unsigned most = 0;                     ///< the largest number, or the longest list; 0: no limit
    unsigned least = 1;                    ///< the smallest number
    Words words = Words::any;
};

/// One thing that a verb takes: an argument when its name is in capitals, an option when it begins with '-'.
struct Option {
    const char* names; ///< "PATH", "--version" or "-r,--recursive"
    /// Filled in when it is given, and lives as long as the verb; or called with each value, in the order of the command
    /// line also among several options.
    std::variant<bool*, unsigned*, std::string*, std::vector<std::string>*,
                 std::function<void(const std::string&)>>
        target;
    const char* help;
    OptionRules rules = {};
};

/// `put` and `get` work on several files at a time.
inline Option jobsOption(unsigned& jobs)
{
    return {"-j,--jobs",
            &jobs,
            "Transfers at the same time; default: 4, or 16 of up to 64 KiB",
            {.valueName = "N", .most = 64}};
}

/// A verb as the command line knows it. All there is to say about it stands in the file named after it.
struct Verb {
    const char* name;
    const char* summary;
    const char* examples;   ///< one a line, indented by two spaces
    const char* notes = ""; ///< what else the help should tell; a paragraph a line
    std::vector<Option> takes;
    /// Does the work and writes the result. @throws what explain() turns into a Failure
    std::function<void(const Invocation&)> run;
    bool takesSingleDashes = false; ///< `-name` is `--name`, as people type it for this verb
    bool isHidden = false;          ///< not for people
};

/// All that can be said on the command line.
struct CommandTree {
    std::vector<Option> options; ///< before or behind any verb
    std::vector<Verb> verbs;
    std::string epilogue = {}; ///< what the help says of all verbs
    /// The text of --help, of all for an empty name. @throws Failure (usage) when there is no such verb
    std::function<std::string(const std::string& verb)> help = {};
};

} // namespace tarncli
