#pragma once

#include "cli/service/ChangeLog.h"
#include "cli/service/Credentials.h"
#include "cli/service/ErrorMapping.h"
#include "cli/service/Profile.h"
#include "cli/service/RequestLog.h"
#include "cli/service/Retries.h"
#include "cli/service/TokenCommand.h"
#include "tarn/foundation/platform/HttpClientResponse.h"
#include "tarnhost/TarnHost.h"

#include <exception>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace tarncli {

class Output;

/// How many requests may be on their way. Short ones, which move next to nothing, mostly wait, for the network and for
/// each other: several go in the place of another.
struct InFlight {
    unsigned most = 4;
    unsigned shortForOne = 4;

    unsigned connections() const { return most * shortForOne; }
};

/// What the command line says about the service, and how it is spoken to.
struct ConnectionOptions {
    ServiceFlags service;
    unsigned jobs = 0;            ///< transfers at the same time; 0: not told
    unsigned connectionsEach = 1; ///< for each of them: one that waited for another's would never end
    unsigned timeout = 0;         ///< seconds that the service may stay silent; 0: not told
    unsigned retries = 3;         ///< of what was interrupted and is safe to repeat
    RequestLogOptions log;
    std::string command = {}; ///< as it was typed, for `tarn undo`
    std::string rate = {}; ///< as parseSize() takes it: bytes per second, at most, each way; empty: no limit
};

/// The service that flags, environment and configuration file name. @throws Failure (usage)
Service serviceFor(const ServiceFlags& flags);

/// A session with the chosen service: what all verbs send their requests through.
///
/// Used on one thread only; that thread also does every login, so that no request reads a session id that is
/// just being replaced. Continuations of the futures run on the host's threads and must not use this object.
class Connection {
public:
    /// Chooses the service; starts the local store when it is that. Sends nothing.
    /// @throws Failure
    Connection(const ConnectionOptions& options, Output& output);
    Connection(Connection&&) noexcept;
    /// Ends the session when it was opened with a token from the environment.
    ~Connection();

    /// Continues the session that is kept for the user, or logs in when a token is at hand. A token from the
    /// environment opens a session for this object alone. @throws Failure (notLoggedIn)
    void resume();

    /// Opens a session and checks that `user` is who the token belongs to; the local store has a token of its
    /// own at hand. @throws Failure
    /// @param keepToken  whether the token is stored beside the session
    void login(const std::string& user, const std::string& token, bool keepToken);

    /// Ends the user's kept session and forgets session and token. @return false when there was none
    bool logout();

    /// Logs in again unless that has happened since `loginsSeen` was read. @throws Failure (notLoggedIn)
    /// without a token at hand
    void renew(unsigned loginsSeen);

    unsigned logins() const { return loginCount; }

    /// Sends what `operation` sends and waits for the reply. What is transient is tried again, after a pause. When
    /// the session has ended it logs in and sends once more: a request refused for that has had no effect.
    /// @throws what the future holds
    template <class Operation>
    auto call(Operation operation)
    {
        const auto seen = loginCount;
        try {
            return patiently(operation);
        } catch (const std::exception&) {
            if (!isNotLoggedIn(std::current_exception())) throw;
        }
        renew(seen);
        return patiently(operation);
    }

    connector::tarn::FileAccess& files() { return *host->fileAccess(); }

    connector::tarn::FileTransfer& contents() { return *host->fileTransfer(); }

    connector::tarn::PublicLinks& links() { return *host->publicLinks(); }

    connector::tarn::AccessControl& access() { return *host->accessControl(); }

    connector::tarn::Versioning& versioning() { return *host->versioning(); }

    connector::tarn::TarnSession& session() { return *host->session(); }

    /// What the command changes is written down there before it is sent.
    ChangeLog& changes();

    /// What this user's commands have changed here, the newest first. @throws Failure
    std::vector<LoggedCommand> commands() const { return loggedCommands(changesName(), user()); }

    /// Sends a request of no client, with the session.
    connector::Future<std::unique_ptr<connector::http::HttpClientResponse>>
    send(std::unique_ptr<connector::http::HttpClientRequest> request);

    /// The name of the bucket of who is logged in.
    std::string user() const { return credentials.user; }

    /// The user that environment, profile or local store tell; empty: none does.
    const std::string& configuredUser() const { return service.user; }

    /// The token of the profile's command; empty: it names none. @throws Failure
    std::string commandedToken() const
    {
        return service.tokenCommand.empty() ? "" : tokenFrom(service.tokenCommand);
    }

    bool isLocal() const { return service.isLocal(); }

    /// "http://…" or "the local store": for messages.
    std::string serviceName() const { return service.isLocal() ? "the local store" : endpoint; }

    const std::string& url() const { return endpoint; }

    const InFlight& inFlight() const { return requestsInFlight; }

    Retries retries() const { return Retries(retriesAtMost); }

    /// Tells people, once, why nothing happens before what failed so is tried again: the service may have asked to wait.
    void tellOfPause(const std::exception_ptr& error);

private:
    /// As `call`, without a look at the session.
    template <class Operation>
    auto patiently(Operation&& operation)
    {
        for (auto left = retries();;) {
            try {
                return operation().get();
            } catch (const std::exception&) {
                pauseAfter(std::current_exception(), left);
            }
        }
    }

    /// @throws the error when it is not transient, or has been repeated often enough
    void pauseAfter(const std::exception_ptr& error, Retries& left);

    std::string changesName() const { return isLocal() ? "local" : endpoint; }

    void startLocalStore(Output& output);
    void openSession(const std::string& user, const std::string& token);
    std::string tokenAtHand() const;
    void checkUser(const std::string& user);
    void keep() const;
    Failure notLoggedIn(const std::string& why) const;

    Service service;
    CredentialStore credentialStore;
    std::string endpoint;
    std::string localToken; ///< of the local store
    InFlight requestsInFlight;
    unsigned retriesAtMost;
    Credentials credentials;
    bool passing = false; ///< the token is from the environment: nothing is kept
    unsigned loginCount = 0;
    std::string command;
    Output* out;
    bool toldOfPause = false;
    std::unique_ptr<ChangeLog> changeLog;
    std::unique_ptr<connector::host::TarnHost> host;
};

} // namespace tarncli
