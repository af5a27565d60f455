#include "cli/service/Profile.h"

#include "cli/machine/Environment.h"
#include "cli/machine/UserFolders.h"
#include "cli/service/Endpoint.h"
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
    throw fileError(file, value.source(), std::string(key) + " must be a text in quotes.");
}

Profile readProfile(const std::filesystem::path& file, const toml::node& node)
{
    const auto* table = node.as_table();
    if (table == nullptr) throw fileError(file, node.source(), "a profile is a table: [profiles.NAME].");
    Profile profile;
    for (const auto& [key, value] : *table) {
        if (key == "endpoint")
            profile.endpoint = textOf(file, key.str(), value);
        else if (key == "user")
            profile.user = textOf(file, key.str(), value);
        else
            throw fileError(file, key.source(),
                            "\"" + std::string(key.str()) +
                                "\" is not known here; a profile has endpoint and user.");
    }
    if (profile.endpoint.empty()) throw fileError(file, node.source(), "this profile needs an endpoint.");
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
    std::string known;
    for (const auto& [other, profile] : profiles.byName)
        known += (known.empty() ? "" : ", ") + other;
    throw usageError("There is no profile \"" + escaped(name) + "\" in " +
                     (folders::config() / "config.toml").string() +
                     (known.empty() ? "." : "; there are: " + known + "."));
}

} // namespace

Profiles Profiles::load(const std::filesystem::path& file)
{
    Profiles profiles;
    std::error_code ignored;
    if (!std::filesystem::exists(file, ignored)) return profiles;
    try {
        for (const auto& [key, value] : toml::parse_file(file.string()))
            readEntry(file, profiles, key, value);
    } catch (const toml::parse_error& error) {
        throw fileError(file, error.source(), error.description());
    }
    return profiles;
}

Service chooseService(const std::string& endpointFlag, const std::string& profileFlag,
                      const Profiles& profiles)
{
    Service service;
    service.profile = profileFlag.empty() ? profiles.defaultName : profileFlag;
    service.endpoint = endpointFlag.empty() ? environmentVariable("TARN_ENDPOINT") : endpointFlag;
    service.user = environmentVariable("TARN_USER");
    // An endpoint given directly leaves the default profile aside, but not one that was asked for.
    if (profileFlag.empty() && !service.endpoint.empty()) service.profile.clear();
    if (!service.profile.empty()) {
        const auto& profile = find(profiles, service.profile);
        if (service.endpoint.empty()) service.endpoint = profile.endpoint;
        if (service.user.empty()) service.user = profile.user;
    }
    if (!service.endpoint.empty()) service.endpoint = checkedEndpoint(service.endpoint);
    return service;
}

} // namespace tarncli
