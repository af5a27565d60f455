#include "cli/machine/Environment.h"
#include "cli/machine/UserFolders.h"
#include "cli/service/Endpoint.h"
#include "cli/service/ProfileFile.h"
#include "cli/terminal/Table.h"
#include "cli/terminal/Text.h"
#include "cli/verbs/Verb.h"

#include <nlohmann/json.hpp>

namespace tarncli::verbs {

namespace {

using nlohmann::json;

struct Options {
    std::string action;
    std::vector<std::string> words; ///< NAME and ENDPOINT
    std::string user;
    std::string tokenCommand;
    std::string folder;
};

void listProfiles(const Invocation& invocation, const Profiles& profiles)
{
    const auto fromEnvironment = environmentVariable("TARN_PROFILE");
    const auto chosen = !fromEnvironment.empty() ? fromEnvironment : profiles.defaultName;
    using enum Table::Align;
    Table table({left, left, left, left}, {"", "NAME", "USER", "ENDPOINT"});
    auto documents = json::array();
    const auto add = [&](const std::string& name, const Profile& profile, const std::string& where) {
        const bool isUsed = name == (chosen.empty() ? localProfile : chosen);
        table.add({isUsed ? "*" : "", name, profile.user, where});
        documents.push_back(
            {{"name", name}, {"user", profile.user}, {"endpoint", profile.endpoint}, {"used", isUsed}});
    };
    for (const auto& [name, profile] : profiles.byName)
        add(name, profile, profile.endpoint);
    if (!profiles.byName.contains(localProfile)) add(localProfile, {}, "the local store");
    invocation.out.list(table.text(), "profiles", documents);
}

/// Its flags say of the profile what they would say of a command.
Profile profileOf(const Invocation& invocation, const Options& options)
{
    const auto& flags = invocation.connection.service;
    Profile profile;
    profile.endpoint = checkedEndpoint(options.words.at(1));
    profile.user = options.user;
    // The file's folder is not the one that the command was run from.
    if (!flags.caFile.empty()) profile.caFile = std::filesystem::absolute(flags.caFile).string();
    profile.proxy = flags.proxy;
    profile.tokenCommand = options.tokenCommand;
    profile.folder = options.folder;
    profile.encodeNames = flags.encodeNames;
    profile.insecure = flags.insecure;
    return profile;
}

void requireWords(const Options& options, std::size_t count, const std::string& example)
{
    if (options.words.size() != count) throw usageError("Write it as `tarn profile " + example + "`.");
}

void manageProfiles(const Invocation& invocation, const Options& options)
{
    const auto file = folders::config() / "config.toml";
    if (options.action == "list") {
        requireWords(options, 0, "list");
        return listProfiles(invocation, Profiles::load(file));
    }
    if (options.action == "add") {
        requireWords(options, 2, "add NAME ENDPOINT");
        const auto& name = options.words.front();
        addProfile(file, name, profileOf(invocation, options));
        invocation.out.message("Added the profile \"" + name + "\"; use it with `--profile " + name +
                               "`, or always after `tarn profile use " + name + "`.");
    } else {
        requireWords(options, 1, "use NAME");
        useProfile(file, options.words.front());
        invocation.out.message("\"" + escaped(options.words.front()) + "\" is now the default profile.");
    }
    invocation.out.result("", {{"profile", options.words.front()}, {"file", file.string()}});
}

} // namespace

Verb profile()
{
    const auto options = std::make_shared<Options>();
    return {.name = "profile",
            .summary = "List the services you have named, name one, or choose the default one",
            .examples = "  tarn profile list\n"
                        "  tarn profile add work https://files.example.org --user alice\n"
                        "  tarn profile add home https://nas:7070 --token-command 'pass show tarn'\n"
                        "  tarn profile add photos https://nas:7070 --folder /photos --encode-names\n"
                        "  tarn profile use work\n"
                        "  tarn profile use local",
            .notes = "They are in ~/.config/tarn/config.toml, where they can be changed and removed. "
                     "\"local\" is the local store.",
            .takes = {{"ACTION",
                       &options->action,
                       "list, add or use",
                       {.required = true, .choices = {"list", "add", "use"}}},
                      {"NAME", &options->words, "Name, and for add the endpoint", {.most = 2}},
                      {"--user", &options->user, "For add: whose storage to use", {.valueName = "USER"}},
                      {"--token-command",
                       &options->tokenCommand,
                       "For add: what writes the token to its standard output",
                       {.valueName = "COMMAND"}},
                      {"--folder",
                       &options->folder,
                       "For add: where remote paths begin that do not begin with '/'",
                       {.valueName = "PATH"}}},
            .run = [options](const Invocation& invocation) { manageProfiles(invocation, *options); }};
}

} // namespace tarncli::verbs
