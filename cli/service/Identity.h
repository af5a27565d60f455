#pragma once

#include "cli/service/Credentials.h"
#include "cli/service/Profile.h"
#include "cli/terminal/Failure.h"

#include <string>

namespace tarncli {

/// As whom requests are sent. Nothing is sent to find out.
struct Identity {
    std::string user;     ///< empty: nobody logged in, and nothing names a user
    std::string userFrom; ///< what named the user: "TARN_USER", "the last login"
    std::string
        givenToken; ///< TARN_TOKEN: goes before what is kept, and is never written, nor is its session
    std::string tokenCommand; ///< gives the token where none is kept; is not run to find out
    Credentials kept;         ///< what `tarn login` left for this user; empty members: nothing

    bool canLogIn() const { return !givenToken.empty() || !kept.token.empty() || !tokenCommand.empty(); }
};

/// The local store knows one user, and no token but its own. @throws Failure when kept credentials cannot be read
Identity identify(const Service& service, const CredentialStore& store);

/// `why`, and how to log in. @param user  may be empty
Failure notLoggedInAs(const std::string& user, const std::string& why);

} // namespace tarncli
