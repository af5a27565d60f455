#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace tarncli {

/// What a login leaves for later calls.
struct Credentials {
    std::string user;
    std::string sessionId; ///< empty: none that is known to live
    std::string token;     ///< empty: not kept, so that an ended session needs a new `tarn login`
};

/// Where credentials are kept: in the user's state folder a folder for each service, in it one file for each user and
/// one that names who logged in last, all of mode 0600.
///
/// The token is in there as plain text, as a password in a netrc file is: whoever may read the user's files
/// can log in. `tarn login --no-store-token` leaves it out.
class CredentialStore {
public:
    /// @param endpoint  empty: the local store
    explicit CredentialStore(const std::string& endpoint);

    /// Who logged in last and has not logged out since; empty: nobody. @throws Failure when it cannot be read
    std::string lastUser() const;
    void setLastUser(const std::string& user) const;

    /// @throws Failure when there is a file that cannot be read
    std::optional<Credentials> load(const std::string& user) const;
    void save(const Credentials& credentials) const;
    /// @return whether there was something to remove
    bool remove(const std::string& user) const;

    std::filesystem::path file(const std::string& user) const;

private:
    std::string service;
    std::filesystem::path folder;
};

} // namespace tarncli
