#include "cli/service/Profile.h"

#include "cli/machine/Environment.h"
#include "cli/machine/FileText.h"
#include "cli/machine/UserFolders.h"
#include "cli/service/Endpoint.h"
#include "cli/service/ProxyVariables.h"
#include "cli/terminal/Failure.h"
#include "cli/terminal/Text.h"

#include <sstream>
#include <toml++/toml.h>

namespace tarncli {

namespace {

Failure fileError(const std::filesystem::path& file, const toml::source_region& where, std::string_view what)
{
    return usageError(file.string() + ", line " + std::to_string(where.begin.line) + ": " +
                      std::string(what));
}

std::string textOf(const std::filesystem::path& file, std::string_view key, const toml::node& value)
{
    if (const auto text = value.value_exact<std::string>()) return *text;
    throw fileError(file, value.source(), std::string(key) + " must be text in quotes.");
}

constexpr std::pair<std::string_view, std::string Profile::*> textKeys[] = {
    {"endpoint", &Profile::endpoint},
    {"user", &Profile::user},
    {"ca_file", &Profile::caFile},
    {"proxy", &Profile::proxy},
    {"token_command", &Profile::tokenCommand},
    {"folder", &Profile::folder},
};

constexpr std::pair<std::string_view, bool Profile::*> switches[] = {
    {"encode_names", &Profile::encodeNames},
    {"insecure", &Profile::insecure},
};

void readKey(const std::filesystem::path& file, Profile& profile, const toml::key& key,
             const toml::node& value)
{
    for (const auto& [name, member] : textKeys)
        if (key == name) {
            profile.*member = textOf(file, name, value);
            return;
        }
    for (const auto& [name, member] : switches)
        if (key == name) {
            if (!value.is_boolean())
                throw fileError(file, value.source(), std::string(name) + " must be true or false.");
            profile.*member = value.value_or(false);
            return;
        }
    throw fileError(file, key.source(),
                    "\"" + escaped(key.str()) +
                        "\" is not known here; a profile has endpoint, user, ca_file, proxy, "
                        "token_command, folder, encode_names and insecure.");
}

Profile readProfile(const std::filesystem::path& file, const toml::node& node)
{
    const auto* table = node.as_table();
    if (table == nullptr) throw fileError(file, node.source(), "a profile is a table: [profiles.NAME].");
    Profile profile;
    for (const auto& [key, value] : *table)
        readKey(file, profile, key, value);
    if (profile.endpoint.empty()) throw fileError(file, node.source(), "this profile needs an endpoint.");
    if (!profile.folder.empty() && !profile.folder.starts_with('/'))
        throw fileError(file, node.source(), "the folder of a profile begins with '/'.");
    // Relative to the file that names it: where a command is run from must not change whom it trusts.
    if (!profile.caFile.empty()) profile.caFile = (file.parent_path() / profile.caFile).string();
    return profile;
}

void readEntry(const std::filesystem::path& file, Profiles& profiles, const toml::key& key,
               const toml::node& value)
{
    if (key == "default_profile") {
        profiles.defaultName = textOf(file, key.str(), value);
    } else if (const auto* table = value.as_table(); key == "profiles" && table != nullptr) {
        for (const auto& [name, profile] : *table)
            profiles.byName[std::string(name.str())] = readProfile(file, profile);
    } else {
        throw fileError(file, key.source(),
                        "\"" + std::string(key.str()) +
                            "\" is not known; there are default_profile and [profiles.NAME].");
    }
}

const Profile& find(const Profiles& profiles, const std::string& name)
{
    if (const auto found = profiles.byName.find(name); found != profiles.byName.end()) return found->second;
    static const Profile local;
    if (name == localProfile) return local;
    std::string known;
    for (const auto& [other, profile] : profiles.byName)
        known += (known.empty() ? "" : ", ") + other;
    throw usageError("There is no profile \"" + escaped(name) + "\" in " +
                     (folders::config() / "config.toml").string() +
                     (known.empty() ? "." : "; there are: " + known + "."));
}

} // namespace

std::string readConfiguration(const std::filesystem::path& file)
{
    std::error_code ignored;
    if (!std::filesystem::exists(file, ignored)) return {};
    return readFile(file);
}

Profiles Profiles::load(const std::filesystem::path& file)
{
    return parse(readConfiguration(file), file);
}

Profiles Profiles::parse(const std::string& text, const std::filesystem::path& file)
{
    Profiles profiles;
    try {
        for (const auto& [key, value] : toml::parse(text, file.string()))
            readEntry(file, profiles, key, value);
    } catch (const toml::parse_error& error) {
        throw fileError(file, error.source(), error.description());
    }
    return profiles;
}

namespace {

/// A value and what named it.
struct Told {
    std::string value;
    std::string from = {};
};

/// The first that says something.
Told firstOf(std::initializer_list<Told> all)
{
    for (const auto& one : all)
        if (!one.value.empty()) return one;
    return {};
}

void requireSafe(const Service& service)
{
    if (service.insecure || service.endpoint.starts_with("https:") || isLoopback(service.endpoint)) return;
    // Before anything is sent: a redirect to https:// would come too late for the token.
    throw usageError("Your token would travel unencrypted to " + service.endpoint +
                     ", where others could read it. Use its https:// address, or insist with --insecure.");
}

} // namespace

Service chooseService(const ServiceFlags& flags, const Profiles& profiles)
{
    const auto endpoint =
        firstOf({{flags.endpoint, "--endpoint"}, {environmentVariable("TARN_ENDPOINT"), "TARN_ENDPOINT"}});
    // An endpoint given directly leaves the default profile aside, but not one that was asked for.
    const auto name = firstOf({{flags.profile},
                               {environmentVariable("TARN_PROFILE")},
                               {endpoint.value.empty() ? profiles.defaultName : ""}})
                          .value;
    const auto profile = name.empty() ? Profile{} : find(profiles, name);
    const auto ofProfile = "profile \"" + escaped(name) + "\"";

    Service service;
    const auto chosen = firstOf({endpoint, {profile.endpoint, ofProfile}});
    service.endpoint = chosen.value;
    service.endpointFrom = chosen.from;
    const auto user = firstOf({{environmentVariable("TARN_USER"), "TARN_USER"}, {profile.user, ofProfile}});
    service.user = user.value;
    service.userFrom = user.from;
    service.folder = profile.folder;
    service.encodeNames = flags.encodeNames || profile.encodeNames;
    if (service.isLocal()) return service;
    service.endpoint = checkedEndpoint(service.endpoint);
    service.caFile =
        firstOf({{flags.caFile}, {profile.caFile}, {environmentVariable("SSL_CERT_FILE")}}).value;
    service.proxy = firstOf({{flags.proxy}, {profile.proxy}, {proxyOfEnvironment(service.endpoint)}}).value;
    if (service.proxy == "none") service.proxy.clear();
    service.insecure = flags.insecure || profile.insecure;
    service.tokenCommand = profile.tokenCommand;
    requireSafe(service);
    return service;
}

} // namespace tarncli
