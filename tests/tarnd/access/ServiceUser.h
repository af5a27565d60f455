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

/// The reply, which must be a success. @throws std::runtime_error with the error
RestReply require(RestReply reply);

/// Somebody who talks to the service: a user once logged in, nobody before. Every operation is one request on a
/// connection of its own; one that stays without a reply throws std::runtime_error.
/// Not for use from two threads at once.
class ServiceUser {
public:
    explicit ServiceUser(std::string serviceUrl, std::string session = {})
        : url(std::move(serviceUrl)), sessionId(std::move(session))
    {
    }

    /// Sends all that follows to another tarnd of the same service.
    void moveTo(const std::string& serviceUrl) { url = serviceUrl; }

    const std::string& session() const { return sessionId; }

    /// Method and target of the last request.
    const std::pair<std::string, std::string>& lastRequest() const { return last; }

    void useSession(const std::string& id) { sessionId = id; }

    /// Keeps the session of a login that worked.
    RestReply login(const std::string& token);

    RestReply logout() { return send("GET", root + "logout"); }

    RestReply ping() { return send("GET", root + "ping"); }

    /// @param mode "CREATE", "UPDATE" or "CREATE_OR_UPDATE"
    RestReply put(const Place& file, const std::string& content, const std::string& mode = "CREATE",
                  bool newVersion = true)
    {
        return onItem("PUT", "files", file, "&createMode=" + mode + asNewVersion(newVersion), content);
    }

    /// @param meanwhile called when the first bytes have come and the others have not
    RestReply read(const Place& file, const std::function<void()>& meanwhile = {})
    {
        return send("GET", targetOf("files", file), {}, meanwhile);
    }

    RestReply readVersion(const Place& file, const std::string& id, const std::string& label)
    {
        return onItem("GET", "files", file, version(id, label));
    }

    /// By a form.
    RestReply download(const Place& file)
    {
        return send("POST", targetOf("download", file), "session=" + sessionId);
    }

    RestReply deleteFile(const Place& file) { return onItem("DELETE", "files", file); }

    RestReply attributes(const Place& item) { return onItem("GET", "filesystem", item); }

    RestReply openReadOnly(const Place& file) { return open(file, "readOnly"); }

    RestReply openReadWrite(const Place& file, const std::string& mode, bool truncate)
    {
        return open(file, "readWrite&createMode=" + mode + "&truncate=" + word(truncate));
    }

    RestReply closeHandle(const std::string& id, bool commit, bool newVersion = false)
    {
        return send("DELETE", root + "filehandle/" + percentEncoded(id) + "?handleOperation=" +
                                  (commit ? "COMMIT_CHANGES" : "ABORT_CHANGES") + asNewVersion(newVersion));
    }

    RestReply createFolder(const Place& folder) { return onItem("PUT", "folders", folder); }

    RestReply list(const Place& folder) { return onItem("GET", "folders", folder); }

    RestReply deleteFolder(const Place& folder, bool forceRecursive)
    {
        return onItem("DELETE", "folders", folder, "&forceRecursive=" + word(forceRecursive));
    }

    RestReply move(const Place& item, const Place& target, bool overwrite)
    {
        return onItem("PUT", "filesystem", item,
                      "&targetPath=" + percentEncoded(target.path) + "&targetBucket=" +
                          percentEncoded(target.bucket) + "&moveTargetOverwrite=" + word(overwrite));
    }

    RestReply grant(const Place& item, const std::string& subject, bool allowNonExistingUser = false)
    {
        return send("PUT", root + "permissions?" + pathAndBucket(item) +
                               "&subject=" + percentEncoded(subject) +
                               "&operation=READ_ONLY&allowNonExistingUser=" + word(allowNonExistingUser));
    }

    RestReply revoke(const std::string& id)
    {
        return send("DELETE", root + "permissions/" + percentEncoded(id));
    }

    RestReply grants() { return send("GET", root + "permissions"); }

    RestReply grantsOn(const Place& item) { return send("GET", root + "permissions?" + pathAndBucket(item)); }

    RestReply sharedContent() { return send("GET", root + "sharedcontent"); }

    RestReply link(const Place& item) { return onItem("GET", "public/urls", item); }

    RestReply linkUntil(const Place& item, std::int64_t expires)
    {
        return onItem("PUT", "public/links", item, "&expires=" + std::to_string(expires));
    }

    RestReply links() { return send("GET", root + "public/links"); }

    RestReply revokeLink(const std::string& id) { return send("DELETE", root + "public/links/" + id); }

    RestReply versions(const Place& file) { return onItem("GET", "versions/files", file); }

    RestReply restore(const Place& file, const std::string& id, const std::string& label, bool newVersion)
    {
        return onItem("PUT", "versions/files", file, version(id, label) + asNewVersion(newVersion));
    }

    /// The target of a request about an item: "/service/v1/RESOURCE/PATH?...". @param query begins with '&'
    static std::string targetOf(const std::string& resource, const Place& item,
                                const std::string& query = {});

    /// Any request of this user's. @param target begins with a slash and goes out as it stands
    RestReply send(const std::string& method, const std::string& target, const std::string& body = {},
                   const std::function<void()>& meanwhile = {}, const std::string& headers = {});

private:
    static inline const std::string root = "/service/v1/";

    static std::string word(bool value) { return value ? "true" : "false"; }

    static std::string asNewVersion(bool value) { return "&createNewVersion=" + word(value); }

    static std::string version(const std::string& id, const std::string& label)
    {
        return "&versionId=" + percentEncoded(id) + "&versionLabel=" + percentEncoded(label);
    }

    static std::string pathAndBucket(const Place& item)
    {
        return "path=" + percentEncoded(item.path) + "&bucket=" + percentEncoded(item.bucket);
    }

    RestReply open(const Place& file, const std::string& mode)
    {
        return send("PUT", root + "filehandle?" + pathAndBucket(file) + "&accessMode=" + mode);
    }

    RestReply onItem(const std::string& method, const std::string& resource, const Place& item,
                     const std::string& query = {}, const std::string& body = {})
    {
        return send(method, targetOf(resource, item, query), body);
    }

    std::string url;
    std::string sessionId;
    std::pair<std::string, std::string> last;
};

} // namespace tarnd::test
