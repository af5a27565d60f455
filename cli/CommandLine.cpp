#include "cli/CommandLine.h"

#include "cli/HelpFormatter.h"
#include "cli/terminal/NearestName.h"
#include "cli/terminal/Text.h"
#include "cli/terminal/Version.h"
#include "cli/verbs/CommandTree.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <map>
#include <memory>
#include <utility>

namespace tarncli {

namespace {

constexpr const char* mainFooter =
    R"(Remote paths: /docs/a.txt is in your own storage, alice:/docs/a.txt in alice's;
a.txt in the folder that the profile names, if it does.
Without --endpoint, TARN_ENDPOINT and a profile in ~/.config/tarn/config.toml,
tarn uses a local store on this machine, which it starts by itself.

Environment:
  TARN_ENDPOINT          the service, unless --endpoint names one
  TARN_PROFILE           the profile, unless --profile names one; "local" is the
                         local store
  TARN_USER, TARN_TOKEN  log in for one command; nothing of that is stored
  SSL_CERT_FILE          the authorities to trust, unless --ca-file names them
  https_proxy, http_proxy, all_proxy, no_proxy
                         the proxy, unless --proxy names one; never for this
                         machine

Exit codes: 0 ok, 2 usage, 3 not found, 4 not logged in, 5 not allowed, 6 exists
or conflict, 7 service unreachable, 8 partly done, 1 anything else, 130
interrupted.
--json: one document on standard output, --json-lines: one for each item of a
list; errors as {"error": TEXT, "kind": WORD, "code": N} on standard error.

Examples:
  tarn put notes.md /notes.md          store a file
  tarn put -r photos /                 store a folder with all in it, as /photos
  tarn get /notes.md .                 fetch it again
  tarn ls -l /                         see what is there
  tarn --endpoint https://files.example.org login alice

`tarn VERB --help` explains a verb.)";

/// The parser takes "[a,b]" for a list of two words, and "++" for the end of a verb. At the end of such a word this sign,
/// which no argument can hold, keeps it as it was typed.
constexpr char asTyped = '\0';

void keepAsTyped(std::string& word)
{
    if (word == "++" || (word.starts_with('[') && word.ends_with(']'))) word += asTyped;
}

std::string typedWord(std::string word)
{
    std::erase(word, asTyped);
    return word;
}

/// Hands each of a verb's options to the parser in its own terms.
class Declaration {
public:
    Declaration(CLI::App& app, const Option& what) : verb(app), option(what) {}

    void operator()(bool* target) const { verb.add_flag(option.names, *target, option.help); }

    void operator()(unsigned* target) const
    {
        ruled(verb.add_option(option.names, *target, option.help))
            ->check(CLI::Range(option.rules.least, option.rules.most));
    }

    void operator()(std::string* target) const
    {
        auto* added = ruled(verb.add_option(option.names, *target, option.help));
        if (!option.rules.choices.empty()) added->check(CLI::IsMember(option.rules.choices));
    }

    void operator()(std::vector<std::string>* target) const
    {
        auto* added = ruled(verb.add_option(option.names, *target, option.help));
        if (option.rules.most > 0) added->expected(1, static_cast<int>(option.rules.most));
        // Each time with one: what follows is the next argument.
        if (*option.names == '-') added->allow_extra_args(false);
    }

    void operator()(const std::function<void(const std::string&)>& take) const
    {
        ruled(verb.add_option_function<std::string>(option.names, take, option.help))->trigger_on_parse();
    }

private:
    CLI::Option* ruled(CLI::Option* added) const
    {
        added->required(option.rules.required);
        added->transform(typedWord);
        if (*option.rules.valueName != '\0') added->type_name(option.rules.valueName);
        return added;
    }

    CLI::App& verb;
    const Option& option;
};

/// What people call a verb elsewhere.
constexpr std::pair<std::string_view, std::string_view> otherNames[] = {
    {"copy", "cp"},      {"del", "rm"},       {"delete", "rm"}, {"diff", "check"},       {"dir", "ls"},
    {"download", "get"}, {"erase", "rm"},     {"fetch", "get"}, {"history", "versions"}, {"info", "stat"},
    {"list", "ls"},      {"locate", "find"},  {"md", "mkdir"},  {"move", "mv"},          {"pull", "get -r"},
    {"push", "put -r"},  {"remove", "rm"},    {"ren", "mv"},    {"rename", "mv"},        {"rmdir", "rm -r"},
    {"search", "find"},  {"share", "grant"},  {"show", "cat"},  {"signin", "login"},     {"size", "du"},
    {"store", "put"},    {"mirror", "sync"},  {"type", "cat"},  {"unshare", "revoke"},   {"upload", "put"},
    {"url", "link"},     {"verify", "check"},
};

/// Owns everything that the parser fills in and no verb does.
class Parser {
public:
    explicit Parser(std::vector<Verb> all) : tree{globalOptions(), std::move(all), {}}
    {
        app.require_subcommand(0, 1); // none shows the help, which the parser would call an error
        app.fallthrough();            // --json and the like may stand behind the verb, too
        app.formatter(std::make_shared<HelpFormatter>());
        app.footer(mainFooter);
        app.set_version_flag("--version", versionText);
        for (const auto& option : tree.options)
            std::visit(Declaration(app, option), option.target);
        for (const auto& verb : tree.verbs)
            add(verb);
        app.allow_extras(); // after the verbs, which would inherit it; refuseExtras() words it better
    }

    const CommandTree& commands() const { return tree; }

    std::string help(const std::string& name)
    {
        // Not app.help(), which speaks of the verb on the command line: that is "help".
        if (name.empty())
            return app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal);
        for (const auto& [parser, verb] : verbs)
            if (verb->name == name) return parser->help(app.get_name());
        throw noVerb(name);
    }

    Command parse(int argc, const char* const* argv)
    {
        std::vector<std::string> arguments(argv + 1, argv + argc);
        doubleDashes(arguments);
        std::ranges::for_each(arguments, keepAsTyped);
        std::ranges::reverse(arguments); // as the parser wants them
        try {
            app.parse(std::move(arguments));
        } catch (const CLI::CallForHelp&) {
            return showHelp(ExitCode::ok);
        } catch (const CLI::CallForVersion& version) {
            command.help = std::string(version.what()) + "\n";
            return std::move(command);
        } catch (const CLI::ParseError& error) {
            throw usageError(sentence(error.what()));
        }
        refuseExtras();
        if (app.get_subcommands().empty()) return showHelp(ExitCode::usage);
        if (json) command.format = Output::Format::json;
        if (jsonLines) command.format = Output::Format::jsonLines;
        if (quietly && verbosely) throw usageError("Choose one of --quiet and --verbose.");
        if (quietly) command.verbosity = Output::Verbosity::quiet;
        if (verbosely) command.verbosity = Output::Verbosity::verbose;
        const auto* verb = verbs.at(app.get_subcommands().front());
        command.connection.command = typed(argc, argv, verb->name);
        command.verb = verb->run;
        return std::move(command);
    }

private:
    std::vector<Option> globalOptions()
    {
        auto& service = command.connection.service;
        return {
            {"--endpoint", &service.endpoint, "Base URL of the service", {.valueName = "URL"}},
            {"--profile", &service.profile, "Profile in the configuration file", {.valueName = "NAME"}},
            {"--ca-file",
             &service.caFile,
             "Certificates (PEM) of the authorities to trust instead of the system's",
             {.valueName = "FILE", .words = Words::local}},
            {"--proxy",
             &service.proxy,
             "Proxy to use; \"none\" for a direct connection",
             {.valueName = "URL"}},
            {"--insecure", &service.insecure,
             "Allow http:// to other machines, which sends the token unencrypted"},
            {"--encode-names", &service.encodeNames,
             "Store names with '?', '#' and control characters, encoded"},
            {"--timeout",
             &command.connection.timeout,
             "How long the service may stay silent; default: 30, or 300 before its reply begins",
             {.valueName = "SECONDS", .most = 86'400}},
            {"--retries",
             &command.connection.retries,
             "How often to try again what was interrupted; default: 3",
             {.valueName = "N", .most = 100, .least = 0}},
            {"--bwlimit",
             &command.connection.rate,
             "Most bytes per second each way, such as 500K or 2M",
             {.valueName = "RATE"}},
            {"--json", &json, "Write results and errors as JSON"},
            {"--json-lines", &jsonLines, "Likewise, and lists as a document a line for each item"},
            {"-q,--quiet", &quietly, "Show errors and warnings only"},
            {"-v,--verbose", &verbosely, "Report every step, and every request with its duration"},
            {"--log-file",
             &command.connection.log.logFile,
             "Append every request, try by try, to this file",
             {.valueName = "FILE", .words = Words::local}},
            {"--record",
             &command.connection.log.recordFile,
             "Write the last 100 requests into this file when something fails; see `tarn help replay`",
             {.valueName = "FILE", .words = Words::local}},
        };
    }

    /// `find / -name x` becomes `find / --name x`.
    void doubleDashes(std::vector<std::string>& arguments) const
    {
        const auto isVerb = [&](const auto& each) { return findVerb(tree, each) != nullptr; };
        auto at = std::ranges::find_if(arguments, isVerb);
        if (at == arguments.end() || !findVerb(tree, *at)->takesSingleDashes) return;
        const auto& verb = *findVerb(tree, *at);
        const auto isMeant = [&](const std::string& name) {
            return std::ranges::any_of(verb.takes, [&](const auto& each) { return isNamed(each, name); });
        };
        for (++at; at != arguments.end() && *at != "--"; ++at)
            if (at->size() > 2 && at->starts_with('-') && isMeant("-" + *at)) at->insert(0, "-");
    }

    void add(const Verb& verb)
    {
        auto* added = app.add_subcommand(verb.name, verb.summary);
        if (std::ranges::any_of(verb.takes, [](const auto& each) { return isNamed(each, "-h"); }))
            added->set_help_flag("--help", "Print this help message and exit");
        added->group(verb.isHidden ? "" : "Verbs");
        const std::string notes = verb.notes;
        added->footer(std::string("Examples:\n") + verb.examples + (notes.empty() ? "" : "\n\n" + notes));
        added->fallthrough();
        for (const auto& option : verb.takes)
            std::visit(Declaration(*added, option), option.target);
        verbs[added] = &verb;
    }

    /// From the verb on, as it could be typed again; without what may hold a password.
    static std::string typed(int argc, const char* const* argv, const std::string& verb)
    {
        std::string text;
        bool isSecret = false;
        for (const auto* const* word = std::find(argv + 1, argv + argc, verb); word < argv + argc; ++word) {
            const std::string each = std::exchange(isSecret, false) ? "..." : *word;
            isSecret = each == "--proxy" || each == "--endpoint";
            if (each.starts_with("--proxy=") || each.starts_with("--endpoint=")) continue;
            const bool isPlain =
                !each.empty() && each.find_first_of(" \t\n'\"\\$*?[]{}()<>|&;#~`") == std::string::npos;
            text += (text.empty() ? "" : " ") + (isPlain ? each : "'" + each + "'");
        }
        return text;
    }

    Command showHelp(ExitCode code)
    {
        if (code != ExitCode::ok && (json || jsonLines)) throw usageError("Name a verb; see `tarn --help`.");
        command.help = app.help();
        command.helpExitCode = code;
        return std::move(command);
    }

    void refuseExtras()
    {
        const auto extras = app.remaining();
        if (extras.empty()) return;
        const auto extra = typedWord(extras.front());
        // Behind a verb, or with a dash in front, it was not meant as a verb.
        const auto verbsGiven = app.get_subcommands();
        if (!verbsGiven.empty() || extra.starts_with('-'))
            throw usageError("\"" + escaped(extra) + "\" is not expected here; see `tarn " +
                             (verbsGiven.empty() ? "" : verbsGiven.front()->get_name() + " ") + "--help`.");
        throw noVerb(extra);
    }

    Failure noVerb(const std::string& word) const
    {
        std::vector<std::string> names;
        for (const auto& verb : tree.verbs)
            if (!verb.isHidden) names.emplace_back(verb.name);
        std::string meant = nearestName(word, names);
        for (const auto& [other, verb] : otherNames)
            if (word == other) meant = verb;
        return usageError("There is no verb \"" + escaped(word) + "\"" +
                          (meant.empty() ? "; see `tarn --help`." : "; did you mean `tarn " + meant + "`?"));
    }

    /// The parser's own errors as one line.
    static std::string sentence(std::string text)
    {
        std::replace(text.begin(), text.end(), '\n', ' ');
        return escaped(typedWord(text)) + (text.ends_with('.') ? "" : ".") + " See --help.";
    }

    CLI::App app{"Keeps your files in a Tarn service.", "tarn"};
    Command command;
    bool json = false;
    bool jsonLines = false;
    bool quietly = false;
    bool verbosely = false;
    CommandTree tree;
    std::map<const CLI::App*, const Verb*> verbs;
};

} // namespace

Command parseCommandLine(std::vector<Verb> verbs, int argc, const char* const* argv)
{
    const auto parser = std::make_shared<Parser>(std::move(verbs));
    auto command = parser->parse(argc, argv);
    command.commands = parser->commands();
    command.commands.epilogue = mainFooter;
    command.commands.help = [parser](const std::string& verb) { return parser->help(verb); };
    return command;
}

} // namespace tarncli
