#pragma once

#include "tarn/foundation/platform/Connector.h"
#include "tarn/session/TarnSession.h"

namespace connector::tarn {

/// The session over a message framework: sends the session messages and keeps what they return.
///
/// No lock guards the members; a login writes the user on the calling thread and the session id on the thread
/// that completes it. Let a login finish before other threads send. The session never logs in again by
/// itself.
class TARN_API TarnSessionClient : public TarnSession {
public:
    /// @param connector     asked for its context once and not kept; must not be null
    /// @param address       of the session service provider
    /// @param clientString  application and version, UTF-8
    /// @param clientType    kind of client, UTF-8
    /// @param locale        UTF-8
    TarnSessionClient(std::shared_ptr<Connector> connector, const Address& address,
                      const std::string& clientString, const std::string& clientType,
                      const std::string& locale);

    /// The request must not be null. Its user becomes the session's at once, and stays so when the login fails,
    /// which leaves the session id as it was. The session id returned is stored before the future is resolved.
    /// This object must outlive the login.
    ReplyTo<Login> login(std::unique_ptr<Login>&& request) override;
    /// A null request is replaced by an empty one.
    ReplyTo<Logout> logout(std::unique_ptr<Logout>&& request) override;
    /// A null request is replaced by an empty one.
    ReplyTo<Ping> ping(std::unique_ptr<Ping>&& request) override;

    void setSessionId(const std::string& value) override { sessionId = value; }

    std::string getSessionId() override { return sessionId; }

    void setUser(const std::u16string& value) override { user = value; }

    std::u16string getUser() override { return user; }

    void setMountPoint(const std::u16string& value) override;
    std::u16string getMountPoint() override;

    void setClientString(const std::string& value) override { clientString = value; }

    std::string getClientString() override { return clientString; }

    void setClientType(const std::string& value) override { clientType = value; }

    std::string getClientType() override { return clientType; }

    void setLocale(const std::string& value) override { locale = value; }

    std::string getLocale() override { return locale; }

    std::shared_ptr<TarnSession> getPtr() override { return shared_from_this(); }

private:
    template <class Request>
    ReplyTo<Request> sendStamped(std::unique_ptr<Request>& request);

    std::shared_ptr<Context> context;
    Address target;
    std::string clientString;
    std::string clientType;
    std::string locale;
    std::u16string user;
    std::u16string mountPoint;
    std::string sessionId;
};

} // namespace connector::tarn
