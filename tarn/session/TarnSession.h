#pragma once

#include "tarn/protocol/ReplyTo.h"
#include "tarn/session/SessionMessages.h"

#include <memory>
#include <string>

namespace connector::tarn {

/// The application's session with the service: whose it is, and what every request must carry.
///
/// One session is shared by all clients of an application. The operations fail through their futures, which
/// are resolved on the host's delivery threads. What is set here is read by the clients at each call and is
/// not synchronised: set it before other threads use the session.
class TARN_API TarnSession : public std::enable_shared_from_this<TarnSession> {
public:
    virtual ~TarnSession() = default;

    /// Opens a session with the request's user and authentication token; its id is kept for later requests. The user
    /// is taken over at once: a login that fails has replaced the user already, beside the old session's id.
    virtual ReplyTo<Login> login(std::unique_ptr<Login>&& request) = 0;
    /// Ends the session at the service. The id kept here stays until the next login.
    virtual ReplyTo<Logout> logout(std::unique_ptr<Logout>&& request) = 0;
    /// Asks the service for a sign of life.
    virtual ReplyTo<Ping> ping(std::unique_ptr<Ping>&& request) = 0;

    virtual void setSessionId(const std::string& value) = 0;
    /// UTF-8; header "x-qz-tarn-session-id" of every request. Empty before the first login.
    virtual std::string getSessionId() = 0;

    virtual void setUser(const std::u16string& value) = 0;
    /// UTF-16; the name of the user's own bucket.
    virtual std::u16string getUser() = 0;

    /// Drops one trailing '/'. Empty restores the default.
    virtual void setMountPoint(const std::u16string& value) = 0;
    /// UTF-16, without trailing '/'; "/users/" and the user while none is set.
    virtual std::u16string getMountPoint() = 0;

    virtual void setClientString(const std::string& value) = 0;
    /// UTF-8; query parameter "clientString".
    virtual std::string getClientString() = 0;

    virtual void setClientType(const std::string& value) = 0;
    /// UTF-8; query parameter "clientType".
    virtual std::string getClientType() = 0;

    virtual void setLocale(const std::string& value) = 0;
    /// UTF-8; kept for the application. Requests always carry "en_US".
    virtual std::string getLocale() = 0;

    /// @throws std::bad_weak_ptr when no shared_ptr owns the session
    virtual std::shared_ptr<TarnSession> getPtr() = 0;
};

} // namespace connector::tarn
