#include "cli/service/Connection.h"

#include "cli/machine/Environment.h"
#include "cli/machine/UserFolders.h"
#include "cli/service/LocalStore.h"
#include "cli/terminal/Output.h"
#include "cli/terminal/Text.h"
#include "tarn/fileaccess/FileMessages.h"
#include "tarn/session/SessionMessages.h"

#include <algorithm>

namespace tarncli {

namespace {

using namespace connector::tarn;

Service chosenService(const ConnectionOptions& options)
{
    return chooseService(options.endpoint, options.profile,
                         Profiles::load(folders::config() / "config.toml"));
}

} // namespace

Connection::Connection(const ConnectionOptions& options, Output& output)
    : service(chosenService(options))
    , credentialStore(service)
    , endpoint(service.endpoint)
    , requestsInFlight(options.inFlight)
{
    if (service.isLocal()) startLocalStore(output);
    connector::host::TarnHost::Options settings;
    settings.endpoint = endpoint;
    settings.clientString = "tarn 0.1.0";
    settings.clientType = "cli";
    settings.http.connectionsPerHost = std::max(settings.http.connectionsPerHost, options.inFlight);
    host = std::make_unique<connector::host::TarnHost>(settings);
}

void Connection::startLocalStore(Output& output)
{
    LocalStore store;
    const auto access = store.ensureRunning([&](const std::string& text) { output.message(text); });
    endpoint = access.url;
    service.user = access.user;
    localToken = access.token;
}

Failure Connection::notLoggedIn(const std::string& why) const
{
    const auto name = service.user.empty() ? credentials.user : service.user;
    return {ExitCode::notLoggedIn,
            why + " " + "Use `tarn login " + (name.empty() ? "USER" : escaped(name)) + "`."};
}

std::string Connection::tokenAtHand() const
{
    if (!localToken.empty()) return localToken;
    const auto given = environmentVariable("TARN_TOKEN");
    return given.empty() ? credentials.token : given;
}

void Connection::resume()
{
    credentials = credentialStore.load().value_or(Credentials{});
    // Whoever asks for another user than the one who logged in last must not act as that one.
    if (!service.user.empty() && credentials.user != service.user) credentials = {service.user, "", ""};
    host->session()->setUser(toUtf16(credentials.user));
    host->session()->setSessionId(credentials.sessionId);
    if (!credentials.sessionId.empty()) return;
    if (tokenAtHand().empty()) throw notLoggedIn("You are not logged in to " + serviceName() + ".");
    if (credentials.user.empty())
        throw Failure(ExitCode::notLoggedIn,
                      "The token's user is not known; set TARN_USER, or use `tarn login USER`.");
    openSession(credentials.user, tokenAtHand());
    checkUser(credentials.user);
    credentialStore.save(credentials);
}

void Connection::login(const std::string& user, const std::string& token, bool keepToken)
{
    credentials = {user, "", ""};
    openSession(user, localToken.empty() ? token : localToken);
    checkUser(user);
    if (keepToken && localToken.empty()) credentials.token = token;
    credentialStore.save(credentials);
}

void Connection::openSession(const std::string& user, const std::string& token)
{
    auto request = std::make_unique<Login>();
    request->user = toUtf16(user);
    request->authenticationToken = token;
    const auto response = host->session()->login(std::move(request)).get();
    if (response->sessionId.empty())
        throw Failure(ExitCode::failure,
                      "The service opened no session. Check that the endpoint is that of a Tarn service.");
    credentials.sessionId = response->sessionId;
    ++loginCount;
}

/// The service is not told the user at a login, but everything is then looked for in the bucket of that name.
/// A bucket's root folder is writable to its owner alone.
void Connection::checkUser(const std::string& user)
{
    auto request = std::make_unique<FileAttributesRead>();
    request->path = u"/";
    try {
        if (host->fileAccess()->readFileAttributes(std::move(request)).get()->attributes.writable) return;
    } catch (const std::exception&) {
        if (!isAnswer(std::current_exception(), answers::notFound)) throw;
    }
    host->session()->logout(nullptr).get();
    throw Failure(ExitCode::notLoggedIn, "The token is not that of the user \"" + escaped(user) + "\".");
}

bool Connection::logout()
{
    credentials = credentialStore.load().value_or(Credentials{});
    host->session()->setSessionId(credentials.sessionId);
    if (!credentials.sessionId.empty()) {
        try {
            host->session()->logout(nullptr).get();
        } catch (const std::exception&) {
            if (!isAnswer(std::current_exception(), answers::sessionEnded)) throw;
        }
    }
    return credentialStore.remove();
}

void Connection::renew(unsigned loginsSeen)
{
    if (loginsSeen != loginCount) return;
    const auto token = tokenAtHand();
    if (token.empty()) throw notLoggedIn("Your session has ended.");
    openSession(credentials.user, token);
    credentialStore.save(credentials);
}

} // namespace tarncli
