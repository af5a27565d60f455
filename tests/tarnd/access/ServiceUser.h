#pragma once

#include "tests/tarnd/access/XmlElement.h"
#include "tests/tarnd/http/Wire.h"

#include <string>

namespace tarnd::test {

using RestReply = WireReply;

/// Names an item. Both texts are plain: they are percent-encoded on their way.
struct Place {
    std::string bucket; ///< empty: the user's own
    std::string path;
};

/// Percent-encodes all but letters, digits and "-._~". A slash stays when `path` is set.
std::string percentEncoded(const std::string& text, bool path = false);

/// "200", or "STATUS sentence" of an error reply. @throws std::runtime_error when the reply is not XML
std::string outcomeOf(const RestReply& reply);

/// Somebody who talks to the service: a user once logged in, nobody before. Every operation is one request on a
/// connection of its own; one that stays without a reply throws std::runtime_error.
/// Not for use from two threads at once.
class ServiceUser {
public:
    explicit ServiceUser(std::string serviceUrl) : url(std::move(serviceUrl)) {}

    /// Sends all that follows to another tarnd of the same service.
    void moveTo(const std::string& serviceUrl) { url = serviceUrl; }

    const std::string& session() const { return sessionId; }

    /// Method and target of the last request.
    const std::pair<std::string, std::string>& lastRequest() const { return last; }

    void useSession(const std::string& id) { sessionId = id; }

    /// Keeps the session of a login that worked.
    RestReply login(const std::string& token);
    RestReply logout();
    RestReply ping();

    /// @param mode "CREATE", "UPDATE" or "CREATE_OR_UPDATE"
    RestReply put(const Place& file, const std::string& content, const std::string& mode = "CREATE",
                  bool createNewVersion = true);
    /// @param meanwhile called when the first bytes have come and the others have not
    RestReply read(const Place& file, const std::function<void()>& meanwhile = {});
    RestReply readVersion(const Place& file, const std::string& versionId, const std::string& label);
    RestReply deleteFile(const Place& file);
    RestReply attributes(const Place& item);
    RestReply openReadOnly(const Place& file);
    RestReply openReadWrite(const Place& file, const std::string& mode, bool truncate);
    RestReply closeHandle(const std::string& id, bool commit, bool createNewVersion = false);

    RestReply createFolder(const Place& folder);
    RestReply list(const Place& folder);
    RestReply deleteFolder(const Place& folder, bool forceRecursive);
    RestReply move(const Place& item, const Place& target, bool overwrite);

    RestReply grant(const Place& item, const std::string& subject, bool allowNonExistingUser = false);
    RestReply revoke(const std::string& permissionId);
    RestReply grants();
    RestReply grantsOn(const Place& item);
    RestReply sharedContent();
    RestReply link(const Place& item);

    RestReply versions(const Place& file);
    RestReply restore(const Place& file, const std::string& versionId, const std::string& label,
                      bool createNewVersion);

    /// The target of a request about an item: "/service/v1/RESOURCE/PATH?...". @param query begins with '&'
    static std::string targetOf(const std::string& resource, const Place& item,
                                const std::string& query = {});

    /// Any request of this user's. @param target begins with a slash and goes out as it stands
    RestReply send(const std::string& method, const std::string& target, const std::string& body = {},
                   const std::function<void()>& meanwhile = {}, const std::string& headers = {});

private:
    RestReply onItem(const std::string& method, const std::string& resource, const Place& item,
                     const std::string& query = {}, const std::string& body = {});

    std::string url;
    std::pair<std::string, std::string> last;
    std::string sessionId;
};

} // namespace tarnd::test
