#include "cli/service/Identity.h"

#include "cli/machine/Environment.h"
#include "cli/terminal/Text.h"

namespace tarncli {

Identity identify(const Service& service, const CredentialStore& store)
{
    Identity identity{service.user, service.userFrom, "", service.tokenCommand, {}};
    if (!service.isLocal()) identity.givenToken = environmentVariable("TARN_TOKEN");
    // A token does not say whose it is: unless a user is named, it is taken for that of who logged in last.
    if (identity.user.empty()) {
        identity.user = store.lastUser();
        identity.userFrom = "the last login";
    }
    if (!identity.user.empty()) identity.kept = store.load(identity.user).value_or(Credentials{});
    identity.kept.user = identity.user;
    return identity;
}

Failure notLoggedInAs(const std::string& user, const std::string& why)
{
    return {ExitCode::notLoggedIn,
            why + " Use `tarn login " + (user.empty() ? "USER" : escaped(user)) + "`."};
}

} // namespace tarncli
