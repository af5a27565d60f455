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

Environment: TARN_ENDPOINT, TARN_USER, TARN_TOKEN.
Exit codes: 0 ok, 2 usage, 3 not found, 4 not logged in, 5 not allowed, 6 exists or conflict,
7 service unreachable, 8 partly done, 1 anything else, 130 interrupted.
--json: one document on standard output; errors as {"error": TEXT, "code": N} on standard error.

Examples:
  tarn put notes.md /notes.md          store a file
  tarn put -r photos /photos           store a folder with all that is in it
  tarn get /notes.md .                 fetch it again
  tarn ls -l /                         see what is there
  tarn --endpoint https://files.example.org login alice

`tarn VERB --help` tells more about a verb.)";

using Action = std::function<void(const Invocation&)>;

/// Owns everything that the parser fills in.
class Parser {
public:
    Parser()
    {
        app.require_subcommand(0, 1);
        app.fallthrough();
        app.footer(mainFooter);
        app.set_version_flag("--version", "tarn 0.1.0");
        app.add_option("--endpoint", command.connection.endpoint, "Base URL of the service")
            ->type_name("URL");
        app.add_option("--profile", command.connection.profile, "Profile of the configuration file")
            ->type_name("NAME");
        app.add_flag("--json", command.json, "Write results and errors as JSON");
        auto* quiet = app.add_flag("-q,--quiet", quietly, "Tell errors only");
        app.add_flag("-v,--verbose", verbosely, "Tell every step")->excludes(quiet);
        addSession();
        addReading();
        addTransfers();
        addFolders();
        addSharing();
        addVersions();
        app.allow_extras(); // after the verbs, which would inherit it; refuseExtras() words it better
    }

    Command parse(int argc, char** argv)
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
        command.verb = actions.at(app.get_subcommands().front());
        return std::move(command);
    }

private:
    CLI::App* add(const std::string& name, const std::string& what, const std::string& examples,
                  Action action)
    {
        auto* verb = app.add_subcommand(name, what);
        verb->footer("\nExamples:\n" + examples);
        verb->fallthrough();
        actions[verb] = std::move(action);
        return verb;
    }

    void addSession()
    {
        auto* verb =
            add("login", "Open a session and keep it for later calls",
                "  tarn --endpoint https://files.example.org login alice\n"
                "  pass show tarn | tarn login alice\n"
                "The token is asked for, or read from standard input or TARN_TOKEN. It is stored beside the\n"
                "session (mode 0600), so that an ended session is renewed without asking.",
                [this](const Invocation& invocation) { verbs::login(invocation, loginOptions); });
        verb->add_option("USER", loginOptions.user, "Whose storage it is; default: the profile's user");
        verb->add_flag("--no-store-token", loginOptions.noStoreToken, "Keep the session only, not the token");
        add("logout", "End the session and forget the token", "  tarn logout", verbs::logout);
        add("ping", "Ask the service for a sign of life", "  tarn ping", verbs::ping);
        verb = add("local", "See or end the local store", "  tarn local status\n  tarn local stop",
                   [this](const Invocation& invocation) { verbs::local(invocation, localOptions); });
        verb->add_option("ACTION", localOptions.action, "status or stop")
            ->required()
            ->check(CLI::IsMember({"status", "stop"}));
    }

    void addReading()
    {
        auto* verb = add("ls", "List a folder", "  tarn ls\n  tarn ls -l /docs\n  tarn ls alice:/shared",
                         [this](const Invocation& invocation) { verbs::list(invocation, listOptions); });
        verb->add_option("PATH", listOptions.path, "Folder or file; default: /");
        verb->add_flag("-l,--long", listOptions.longFormat, "With sizes and times");
        verb = add("tree", "List a folder with all below it", "  tarn tree /docs",
                   [this](const Invocation& invocation) { verbs::tree(invocation, pathOptions); });
        addPath(verb, "Folder; default: /", false);
        verb = add("stat", "Show what the service knows about a file or folder", "  tarn stat /docs/a.txt",
                   [this](const Invocation& invocation) { verbs::stat(invocation, pathOptions); });
        addPath(verb, "File or folder", true);
        verb = add("cat", "Write files to standard output",
                   "  tarn cat /notes.md\n  tarn cat --version 2 /notes.md",
                   [this](const Invocation& invocation) { verbs::cat(invocation, catOptions); });
        verb->add_option("PATH", catOptions.paths, "Files")->required();
        verb->add_option("--version", catOptions.version, "Number or id of an earlier version")
            ->type_name("VERSION");
    }

    void addTransfers()
    {
        auto* verb = add("put", "Store files",
                         "  tarn put notes.md /notes.md\n"
                         "  tarn put a.txt b.txt /docs/\n"
                         "  tarn put -r -j 8 photos /photos\n"
                         "  pg_dump app | tarn put - /backup.sql",
                         [this](const Invocation& invocation) { verbs::put(invocation, putOptions); });
        verb->add_option("PLACE", putOptions.places, "LOCAL... REMOTE; LOCAL - is standard input")
            ->required();
        verb->add_flag("-r,--recursive", putOptions.recursive, "Folders with all that is in them");
        verb->add_flag("-f,--force", putOptions.force, "Replace the content of files that exist");
        verb->add_flag("--new-version", putOptions.newVersion, "Keep the old content as a version");
        verb->add_flag("--skip-existing", putOptions.skipExisting, "Leave files that exist as they are");
        addInFlight(verb);
        verb = add("get", "Fetch files",
                   "  tarn get /notes.md .\n"
                   "  tarn get -r /photos ~/photos\n"
                   "  tarn get --version 2 /notes.md old.md\n"
                   "  tarn get /backup.sql - | psql app",
                   [this](const Invocation& invocation) { verbs::get(invocation, getOptions); });
        verb->add_option("PLACE", getOptions.places, "REMOTE... LOCAL; LOCAL - is standard output")
            ->required();
        verb->add_flag("-r,--recursive", getOptions.recursive, "Folders with all that is in them");
        verb->add_flag("-f,--force", getOptions.force, "Replace local files that exist");
        verb->add_option("--version", getOptions.version, "Number or id of an earlier version")
            ->type_name("VERSION");
        addInFlight(verb);
    }

    void addFolders()
    {
        auto* verb =
            add("mkdir", "Make folders", "  tarn mkdir /docs\n  tarn mkdir -p /a/b/c",
                [this](const Invocation& invocation) { verbs::makeFolder(invocation, makeFolderOptions); });
        verb->add_option("PATH", makeFolderOptions.paths, "Folders")->required();
        verb->add_flag("-p,--parents", makeFolderOptions.parents,
                       "Also those above; one that is there is no error");
        verb =
            add("mv", "Move or rename a file or folder", "  tarn mv /a.txt /b.txt\n  tarn mv /a.txt /docs/",
                [this](const Invocation& invocation) { verbs::move(invocation, moveOptions); });
        verb->add_option("SOURCE", moveOptions.source, "File or folder")->required();
        verb->add_option("TARGET", moveOptions.target, "New path, or the folder it goes into")->required();
        verb->add_flag("-f,--force", moveOptions.force, "Replace a target that exists");
        verb = add("rm", "Delete files and folders", "  tarn rm /a.txt\n  tarn rm -r /docs",
                   [this](const Invocation& invocation) { verbs::remove(invocation, removeOptions); });
        verb->add_option("PATH", removeOptions.paths, "Files and folders")->required();
        verb->add_flag("-r,--recursive", removeOptions.recursive, "Folders with all that is in them");
        verb->add_flag("-f,--force", removeOptions.force, "What is not there is no error");
    }

    void addSharing()
    {
        auto* verb = add("grant", "Let another user read a file, or a folder and all below it",
                         "  tarn grant /docs bob\n  tarn grant --pending /docs carol",
                         [this](const Invocation& invocation) { verbs::grant(invocation, grantOptions); });
        verb->add_option("PATH", grantOptions.path, "File or folder")->required();
        verb->add_option("USER", grantOptions.user, "Who may read it")->required();
        verb->add_flag("--pending", grantOptions.pending, "Also for a user who does not exist yet");
        verb = add("revoke", "Take a grant back", "  tarn revoke /docs bob\n  tarn revoke 5c1f…",
                   [this](const Invocation& invocation) { verbs::revoke(invocation, revokeOptions); });
        verb->add_option("GRANT", revokeOptions.what, "ID, or PATH USER")->required()->expected(1, 2);
        verb = add("grants", "List what you let others read", "  tarn grants\n  tarn grants /docs",
                   [this](const Invocation& invocation) { verbs::grants(invocation, grantsOptions); });
        verb->add_option("PATH", grantsOptions.path, "File or folder; default: all");
        add("shared", "List what others let you read", "  tarn shared", verbs::shared);
        verb = add("link", "Print a link that opens a file or folder without login", "  tarn link /photo.jpg",
                   [this](const Invocation& invocation) { verbs::link(invocation, pathOptions); });
        addPath(verb, "File or folder", true);
    }

    void addVersions()
    {
        auto* verb = add("versions", "List the versions of a file", "  tarn versions /notes.md",
                         [this](const Invocation& invocation) { verbs::versions(invocation, pathOptions); });
        addPath(verb, "File", true);
        verb = add("restore", "Make an earlier version the current one",
                   "  tarn restore /notes.md 2\n  tarn restore --as-new /notes.md 2",
                   [this](const Invocation& invocation) { verbs::restore(invocation, restoreOptions); });
        verb->add_option("PATH", restoreOptions.path, "File")->required();
        verb->add_option("VERSION", restoreOptions.version, "Number or id of the version")->required();
        verb->add_flag("--as-new", restoreOptions.asNew, "Add a copy of it as the newest version");
    }

    void addPath(CLI::App* verb, const std::string& what, bool required)
    {
        verb->add_option("PATH", pathOptions.path, what)->required(required);
    }

    void addInFlight(CLI::App* verb)
    {
        verb->add_option("-j,--jobs", command.connection.inFlight, "Transfers at the same time; default: 4")
            ->check(CLI::Range(1u, 64u))
            ->type_name("N");
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
        const auto verbsGiven = app.get_subcommands();
        if (!verbsGiven.empty() || extra.starts_with('-'))
            throw usageError("\"" + escaped(extra) + "\" is not expected here; see `tarn " +
                             (verbsGiven.empty() ? "" : verbsGiven.front()->get_name() + " ") + "--help`.");
        std::vector<std::string> names;
        for (const auto& [verb, action] : actions)
            names.push_back(verb->get_name());
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
    std::map<const CLI::App*, Action> actions;
    bool quietly = false;
    bool verbosely = false;
    LoginOptions loginOptions;
    LocalOptions localOptions;
    ListOptions listOptions;
    CatOptions catOptions;
    PutOptions putOptions;
    GetOptions getOptions;
    MakeFolderOptions makeFolderOptions;
    MoveOptions moveOptions;
    RemoveOptions removeOptions;
    GrantOptions grantOptions;
    RevokeOptions revokeOptions;
    PathOptions pathOptions;
    PathOptions grantsOptions;
    RestoreOptions restoreOptions;
};

} // namespace

Command parseCommandLine(int argc, char** argv)
{
    // The actions refer to the options, which therefore stay for as long as the program runs.
    static Parser parser;
    return parser.parse(argc, argv);
}

} // namespace tarncli
