#include "cli/CommandLine.h"

#include "cli/terminal/NearestName.h"
#include "cli/terminal/Text.h"

#include <CLI/CLI.hpp>

namespace tarncli {

namespace {

constexpr const char* mainFooter = R"(
Remote paths: /docs/a.txt is in your own storage, alice:/docs/a.txt in alice's.
Without --endpoint, TARN_ENDPOINT and a profile in ~/.config/tarn/config.toml, tarn uses a local
store on this machine, which it starts by itself.

Environment:
  TARN_ENDPOINT          the service, unless --endpoint names one
  TARN_USER, TARN_TOKEN  log in for one command; nothing of that is stored
  SSL_CERT_FILE          the authorities to trust, unless --ca-file names them
  https_proxy, http_proxy, all_proxy, no_proxy
                         the proxy, unless --proxy names one; never for this machine

Exit codes: 0 ok, 2 usage, 3 not found, 4 not logged in, 5 not allowed, 6 exists or conflict,
7 service unreachable, 8 partly done, 1 anything else, 130 interrupted.
--json: one document on standard output; errors as {"error": TEXT, "code": N} on standard error.

Examples:
  tarn put notes.md /notes.md          store a file
  tarn put -r photos /                 store a folder and everything in it, as /photos
  tarn get /notes.md .                 fetch it again
  tarn ls -l /                         see what is there
  tarn --endpoint https://files.example.org login alice

`tarn VERB --help` explains a verb.)";

/// Hands each of a verb's options to the parser in its own terms.
class Declaration {
public:
    Declaration(CLI::App& app, const Option& what) : verb(app), option(what) {}

    void operator()(bool* target) const { verb.add_flag(option.names, *target, option.help); }

    void operator()(unsigned* target) const
    {
        // Not 0: with no transfer at a time nothing would ever end.
        ruled(verb.add_option(option.names, *target, option.help))->check(CLI::Range(1u, option.rules.most));
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
    }

private:
    CLI::Option* ruled(CLI::Option* added) const
    {
        added->required(option.rules.required);
        if (*option.rules.valueName != '\0') added->type_name(option.rules.valueName);
        return added;
    }

    CLI::App& verb;
    const Option& option;
};

/// Owns everything that the parser fills in and no verb does.
class Parser {
public:
    explicit Parser(const std::vector<Verb>& all)
    {
        app.require_subcommand(0, 1); // none shows the help, which the parser would call an error
        app.fallthrough();            // --json and the like may stand behind the verb, too
        app.footer(mainFooter);
        app.set_version_flag("--version", "tarn 0.1.0");
        auto& service = command.connection.service;
        app.add_option("--endpoint", service.endpoint, "Base URL of the service")->type_name("URL");
        app.add_option("--profile", service.profile, "Profile in the configuration file")->type_name("NAME");
        app.add_option("--ca-file", service.caFile,
                       "Certificates (PEM) of the authorities to trust instead of the system's")
            ->type_name("FILE");
        app.add_option("--proxy", service.proxy, "Proxy to use; \"none\" for a direct connection")
            ->type_name("URL");
        app.add_flag("--insecure", service.insecure,
                     "Allow http:// to other machines, which sends the token unencrypted");
        app.add_option("--timeout", command.connection.timeout,
                       "How long the service may stay silent; default: 30, or 300 before its reply begins")
            ->check(CLI::Range(1u, 86'400u))
            ->type_name("SECONDS");
        app.add_option("--retries", command.connection.retries,
                       "How often to try again what was interrupted; default: 3")
            ->check(CLI::Range(0u, 100u))
            ->type_name("N");
        app.add_flag("--json", command.json, "Write results and errors as JSON");
        auto* quiet = app.add_flag("-q,--quiet", quietly, "Show errors and warnings only");
        app.add_flag("-v,--verbose", verbosely, "Report every step")->excludes(quiet);
        for (const auto& verb : all)
            add(verb);
        app.allow_extras(); // after the verbs, which would inherit it; refuseExtras() words it better
    }

    Command parse(int argc, const char* const* argv)
    {
        try {
            app.parse(argc, argv);
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
        if (quietly) command.verbosity = Output::Verbosity::quiet;
        if (verbosely) command.verbosity = Output::Verbosity::verbose;
        command.verb = verbs.at(app.get_subcommands().front())->run;
        return std::move(command);
    }

private:
    void add(const Verb& verb)
    {
        auto* added = app.add_subcommand(verb.name, verb.summary);
        added->footer(std::string("\nExamples:\n") + verb.examples);
        added->fallthrough();
        for (const auto& option : verb.takes)
            std::visit(Declaration(*added, option), option.target);
        verbs[added] = &verb;
    }

    Command showHelp(ExitCode code)
    {
        command.help = app.help();
        command.helpExitCode = code;
        return std::move(command);
    }

    void refuseExtras()
    {
        const auto extras = app.remaining();
        if (extras.empty()) return;
        const auto& extra = extras.front();
        // Behind a verb, or with a dash in front, it was not meant as a verb.
        const auto verbsGiven = app.get_subcommands();
        if (!verbsGiven.empty() || extra.starts_with('-'))
            throw usageError("\"" + escaped(extra) + "\" is not expected here; see `tarn " +
                             (verbsGiven.empty() ? "" : verbsGiven.front()->get_name() + " ") + "--help`.");
        std::vector<std::string> names;
        for (const auto& [app, verb] : verbs)
            names.emplace_back(verb->name);
        const auto nearest = nearestName(extra, names);
        throw usageError(
            "There is no verb \"" + escaped(extra) + "\"" +
            (nearest.empty() ? "; see `tarn --help`." : "; did you mean `tarn " + nearest + "`?"));
    }

    /// The parser's own errors as one line.
    static std::string sentence(std::string text)
    {
        std::replace(text.begin(), text.end(), '\n', ' ');
        return escaped(text) + (text.ends_with('.') ? "" : ".") + " See --help.";
    }

    CLI::App app{"Keeps your files in a Tarn service.", "tarn"};
    Command command;
    std::map<const CLI::App*, const Verb*> verbs;
    bool quietly = false;
    bool verbosely = false;
};

} // namespace

Command parseCommandLine(const std::vector<Verb>& verbs, int argc, const char* const* argv)
{
    return Parser(verbs).parse(argc, argv);
}

} // namespace tarncli
