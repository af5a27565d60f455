#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace tarncli {

/// One `[profiles.NAME]` of the configuration file.
struct Profile {
    std::string endpoint;
    std::string user; ///< empty: named at `tarn login`
};

/// The user's configuration file:
///
///     default_profile = "work"
///     [profiles.work]
///     endpoint = "https://files.example.org"
///     user = "alice"
struct Profiles {
    std::string defaultName; ///< empty: none
    std::map<std::string, Profile> byName;

    /// Reads the file; one that is not there gives no profiles.
    /// @throws Failure (usage) with the line for text that is no TOML, for an unknown key and for a wrong
    /// type
    static Profiles load(const std::filesystem::path& file);
};

/// Which service to talk to, and as whom.
struct Service {
    std::string endpoint; ///< empty: the local store
    std::string profile;  ///< empty: none in use
    std::string user;     ///< empty: not told; then it is whoever logged in last

    bool isLocal() const { return endpoint.empty(); }
};

/// Endpoint: the flag, then TARN_ENDPOINT, then the profile (the one named, else the default one), else the
/// local store. User: TARN_USER, then the profile's.
/// @throws Failure (usage) for an unknown profile and an endpoint that cannot be used
Service chooseService(const std::string& endpointFlag, const std::string& profileFlag,
                      const Profiles& profiles);

} // namespace tarncli
