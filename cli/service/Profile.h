#pragma once

#include <filesystem>
#include <map>
#include <string>

namespace tarncli {

/// One `[profiles.NAME]` of the configuration file.
struct Profile {
    std::string endpoint = {};
    std::string user = {}; ///< empty: named at `tarn login`
    /// Key "ca_file", from the configuration file's folder; empty: the system's authorities.
    std::string caFile = {};
    std::string proxy = {}; ///< URL, or "none"; empty: what the environment says
    /// Key "token_command": writes the token to its standard output; empty: none.
    std::string tokenCommand = {};
    std::string folder =
        {}; ///< where remote paths begin that do not begin with '/'; empty: there are none such
    bool encodeNames = false; ///< key "encode_names": store names with '?' and the like, encoded
    bool insecure = false;    ///< the token may travel unencrypted
};

/// The profile of this name, unless the file has one, is the local store.
inline constexpr const char* localProfile = "local";

/// The user's configuration file:
///
///     default_profile = "work"
///     [profiles.work]
///     endpoint = "https://files.example.org"
///     user = "alice"
///     ca_file = "work.pem"
///     proxy = "http://proxy.example.org:3128"
///     token_command = "pass show tarn"
///     folder = "/photos"
///     encode_names = true
struct Profiles {
    std::string defaultName; ///< empty: none
    std::map<std::string, Profile> byName;

    /// Reads the file; one that is not there gives no profiles.
    /// @throws Failure (usage) with the line for text that is not TOML, for an unknown key and for a wrong type
    static Profiles load(const std::filesystem::path& file);
    /// Likewise, of the text that the file has or is to have.
    static Profiles parse(const std::string& text, const std::filesystem::path& file);
};

/// The text of the configuration file; empty when it is not there. @throws Failure when it cannot be read
std::string readConfiguration(const std::filesystem::path& file);

/// What the command line itself says; empty: nothing.
struct ServiceFlags {
    std::string endpoint;
    std::string profile;
    std::string caFile;
    std::string proxy;
    bool encodeNames = false;
    bool insecure = false;
};

/// Which service to talk to, as whom, and which way.
struct Service {
    std::string endpoint;     ///< empty: the local store
    std::string endpointFrom; ///< what named it: "--endpoint", "TARN_ENDPOINT", "profile \"work\""
    std::string user;         ///< empty: not told; then it is whoever logged in last
    std::string userFrom;     ///< likewise
    std::string caFile;       ///< empty: the system's authorities
    std::string proxy;        ///< URL; empty: none
    std::string tokenCommand; ///< empty: none
    std::string folder;       ///< where relative paths begin; empty: there are none
    bool encodeNames = false;
    bool insecure = false;

    bool isLocal() const { return endpoint.empty(); }
};

/// Endpoint: the flag, then TARN_ENDPOINT, then the profile (that of the flag, then of TARN_PROFILE, then the default
/// one), else the local store. User: TARN_USER, then the profile's. Authorities: the flag, then the profile's, then SSL_CERT_FILE.
/// Proxy: the flag, then the profile's, then the environment's (see proxyOfEnvironment).
/// @throws Failure (usage) for an unknown profile, an endpoint that cannot be used, and a service beyond this machine
/// that would be sent the token unencrypted without being told --insecure
Service chooseService(const ServiceFlags& flags, const Profiles& profiles);

} // namespace tarncli
