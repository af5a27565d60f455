#include "cli/service/Connection.h"

#include "cli/machine/SystemError.h"
#include "cli/machine/UserFolders.h"
#include "cli/service/Identity.h"
#include "cli/service/LocalStore.h"
#include "cli/service/ReplyCheck.h"
#include "cli/terminal/Output.h"
#include "cli/terminal/Quantities.h"
#include "cli/terminal/Text.h"
#include "cli/terminal/Version.h"
#include "tarn/fileaccess/FileMessages.h"
#include "tarn/protocol/SessionQuery.h"
#include "tarn/protocol/TarnError.h"
#include "tarn/session/SessionMessages.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <unistd.h>
#include <utility>

namespace tarncli {

namespace {

using namespace connector::tarn;

/// Below that a service would take us for one that stands still.
constexpr std::uint64_t leastLimit = 16 * 1024;
constexpr auto farewellLimit = std::chrono::seconds(2);
constexpr std::uint16_t statusTooMany = 429;
constexpr std::chrono::milliseconds turnedAwayPause{1000};

/// Whoever tells a number means it.
InFlight inFlightOf(const ConnectionOptions& options)
{
    return options.jobs > 0 ? InFlight{options.jobs, 1} : InFlight();
}

connector::host::HttpOptions httpOptionsFor(const Service& service, unsigned connections)
{
    connector::host::HttpOptions http;
    http.connectionsPerHost = std::max(http.connectionsPerHost, connections);
    http.proxy = service.proxy;
    http.caFile = service.caFile;
    // Told here, since it would otherwise be told as a connection that failed. Nobody asks them over http://.
    if (!http.caFile.empty() && service.endpoint.starts_with("https:") &&
        ::access(http.caFile.c_str(), R_OK) != 0)
        throwErrno("Could not read the certificates in", http.caFile);
    return http;
}

bool isTurnedAway(const std::exception_ptr& error)
{
    try {
        std::rethrow_exception(error);
    } catch (const TarnError& refusal) {
        return refusal.status() == statusTooMany;
    } catch (...) {
        return false;
    }
}

/// Whoever has written a 429, nothing was done, and the same may be asked for again.
std::string checkReply(const connector::host::ReceivedReply& reply)
{
    auto wrong = whyNotTarn(reply);
    if (!wrong.empty() && reply.status == statusTooMany)
        throw TarnError(ErrorKind::unavailable, "What answers there asks to wait; try again later.",
                        statusTooMany, {});
    return wrong;
}

void limitWaiting(connector::host::HttpOptions& http, std::chrono::seconds limit)
{
    http.connectTimeout = std::min<std::chrono::milliseconds>(http.connectTimeout, limit);
    http.replyTimeout = limit;
    http.stallWindow = limit;
}

void limitRate(connector::host::HttpOptions& http, const ConnectionOptions& options)
{
    const auto rate = parseSize(options.rate);
    if (!rate || *rate < leastLimit)
        throw usageError("--bwlimit is bytes per second, such as 500K or 2M, and " + humanSize(leastLimit) +
                         " at least; not \"" + escaped(options.rate) + "\".");
    http.mostRate = *rate;
    // What is held back here is no stall.
    http.leastRate =
        std::min(http.leastRate, *rate / (4 * inFlightOf(options).connections() * options.connectionsEach));
}

} // namespace

Service serviceFor(const ServiceFlags& flags)
{
    return chooseService(flags, Profiles::load(folders::config() / "config.toml"));
}

Connection::Connection(const ConnectionOptions& options, Output& output)
    : service(serviceFor(options.service))
    , credentialStore(service.endpoint)
    , endpoint(service.endpoint)
    , requestsInFlight(inFlightOf(options))
    , retriesAtMost(options.retries)
    , command(options.command)
    , out(&output)
{
    if (service.isLocal()) startLocalStore(output);
    connector::host::TarnHost::Options settings;
    settings.endpoint = endpoint;
    settings.clientString = versionText;
    settings.clientType = "cli";
    settings.http = httpOptionsFor(service, requestsInFlight.connections() * options.connectionsEach);
    settings.http.replyCheck = checkReply;
    settings.http.observers = requestObservers(options.log, output);
    if (!options.rate.empty()) limitRate(settings.http, options);
    if (options.timeout > 0) limitWaiting(settings.http, std::chrono::seconds(options.timeout));
    host = std::make_unique<connector::host::TarnHost>(settings);
}

Connection::Connection(Connection&&) noexcept = default;

/// The session of a token from the environment is for this call alone: the service need not keep it.
Connection::~Connection()
{
    if (!host || !passing || credentials.sessionId.empty()) return;
    try {
        host->session()->logout(nullptr).waitFor(farewellLimit);
    } catch (const std::exception&) { // it ends by itself after a while
    }
}

void Connection::pauseAfter(const std::exception_ptr& error, Retries& left)
{
    const auto pause = isTransient(error) ? left.next() : std::nullopt;
    if (!pause) std::rethrow_exception(error);
    tellOfPause(error);
    // A service that counts requests lets the next one in within a second.
    std::this_thread::sleep_for(isTurnedAway(error) ? std::max(*pause, turnedAwayPause) : *pause);
}

void Connection::tellOfPause(const std::exception_ptr& error)
{
    if (isTurnedAway(error) && !std::exchange(toldOfPause, true))
        out->message("The service asks to wait; going on in a moment.");
}

void Connection::startLocalStore(Output& output)
{
    LocalStore store;
    const auto access = store.ensureRunning([&](const std::string& text) { output.message(text); });
    endpoint = access.url;
    service.user = access.user;
    service.userFrom = "the local store";
    localToken = access.token;
}

Failure Connection::notLoggedIn(const std::string& why) const
{
    return notLoggedInAs(credentials.user, why);
}

void Connection::resume()
{
    const auto identity = identify(service, credentialStore);
    credentials = identity.kept;
    passing = !identity.givenToken.empty();
    if (passing) credentials = {identity.user, "", identity.givenToken};
    if (!localToken.empty()) credentials.token = localToken;
    host->session()->setUser(toUtf16(credentials.user));
    host->session()->setSessionId(credentials.sessionId);
    if (!credentials.sessionId.empty()) return;
    const auto token = tokenAtHand();
    if (token.empty()) throw notLoggedIn("You are not logged in to " + serviceName() + ".");
    if (credentials.user.empty())
        throw Failure(ExitCode::notLoggedIn,
                      "Nothing says whose token TARN_TOKEN is; set TARN_USER, or use `tarn login USER`.");
    openSession(credentials.user, token);
    checkUser(credentials.user);
    keep();
}

/// What the command gives is not kept.
std::string Connection::tokenAtHand() const
{
    return credentials.token.empty() ? commandedToken() : credentials.token;
}

void Connection::login(const std::string& user, const std::string& token, bool keepToken)
{
    credentials = {user, "", ""};
    openSession(user, localToken.empty() ? token : localToken);
    checkUser(user);
    if (keepToken) credentials.token = token;
    keep();
    credentialStore.setLastUser(user);
}

/// The local store's token stays in its own file alone.
void Connection::keep() const
{
    if (passing) return;
    auto kept = credentials;
    if (!localToken.empty()) kept.token.clear();
    credentialStore.save(kept);
}

void Connection::openSession(const std::string& user, const std::string& token)
{
    const auto response = patiently([&] {
        auto request = std::make_unique<Login>();
        request->user = toUtf16(user);
        request->authenticationToken = token;
        return host->session()->login(std::move(request));
    });
    if (response->sessionId.empty())
        throw Failure(ExitCode::failure,
                      "The service did not open a session. Check that the endpoint is a Tarn service.");
    credentials.sessionId = response->sessionId;
    ++loginCount;
}

/// The service is not told the user at a login, but everything is then looked for in the bucket of that name.
/// A bucket's root folder is writable to its owner alone.
void Connection::checkUser(const std::string& user)
{
    const auto readRoot = [this] {
        auto request = std::make_unique<FileAttributesRead>();
        request->path = u"/";
        return host->fileAccess()->readFileAttributes(std::move(request));
    };
    try {
        if (patiently(readRoot)->attributes.writable) return;
    } catch (const std::exception&) {
        if (!isRefusal(std::current_exception(), reasons::notFound)) throw;
    }
    host->session()->logout(nullptr).get();
    credentials.sessionId.clear();
    throw Failure(ExitCode::notLoggedIn, "The token does not belong to the user \"" + escaped(user) + "\".");
}

bool Connection::logout()
{
    const auto identity = identify(service, credentialStore);
    host->session()->setSessionId(identity.kept.sessionId);
    if (!identity.kept.sessionId.empty()) {
        try {
            patiently([this] { return host->session()->logout(nullptr); });
        } catch (const std::exception&) {
            // Ended already is what was asked for.
            if (!isNotLoggedIn(std::current_exception())) throw;
        }
    }
    return !identity.user.empty() && credentialStore.remove(identity.user);
}

ChangeLog& Connection::changes()
{
    if (!changeLog) changeLog = std::make_unique<ChangeLog>(changesName(), user(), command);
    return *changeLog;
}

connector::Future<std::unique_ptr<connector::http::HttpClientResponse>>
Connection::send(std::unique_ptr<connector::http::HttpClientRequest> request)
{
    using connector::host::TarnHost;
    request->headers.emplace(sessionIdHeader, credentials.sessionId);
    return host->connector()->getContext()->handle<connector::http::HttpClientResponse>(
        std::move(request), TarnHost::Addresses::http());
}

void Connection::renew(unsigned loginsSeen)
{
    // Of many requests that were refused for the same ended session, the first has renewed it.
    if (loginsSeen != loginCount) return;
    const auto token = tokenAtHand();
    if (token.empty()) throw notLoggedIn("Your session has ended.");
    openSession(credentials.user, token);
    keep();
}

} // namespace tarncli
