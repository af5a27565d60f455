#pragma once

#include "cli/service/Profile.h"

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

/// Where credentials are kept: one file for each endpoint and profile, mode 0600, in the user's state folder.
///
/// The token is in there as plain text, as a password in a netrc file is: whoever may read the user's files
/// can log in. `tarn login --no-store-token` leaves it out.
class CredentialStore {
public:
    explicit CredentialStore(const Service& service);

    /// @throws Failure when there is a file that cannot be read
    std::optional<Credentials> load() const;
    void save(const Credentials& credentials) const;
    /// @return whether there was something to remove
    bool remove() const;

    const std::filesystem::path& file() const { return path; }

private:
    std::string key;
    std::filesystem::path path;
};

} // namespace tarncli
