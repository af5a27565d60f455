#include "tests/tarnd/access/ServiceUser.h"

#include <cctype>
#include <stdexcept>
#include <string_view>

namespace tarnd::test {

namespace {

const std::string root = "/service/v1/";

std::string word(bool value)
{
    return value ? "true" : "false";
}

std::string pathAndBucket(const Place& item)
{
    return "path=" + percentEncoded(item.path) + "&bucket=" + percentEncoded(item.bucket);
}

std::string versionQuery(const std::string& id, const std::string& label)
{
    return "&versionId=" + percentEncoded(id) + "&versionLabel=" + percentEncoded(label);
}

} // namespace

std::string percentEncoded(const std::string& text, bool path)
{
    constexpr char digits[] = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain =
            byte < 0x80 && (std::isalnum(byte) || std::string_view("-._~").find(c) != std::string_view::npos);
        if (plain || (path && c == '/'))
            encoded += c;
        else
            encoded.append({'%', digits[byte >> 4], digits[byte & 15]});
    }
    return encoded;
}

std::string outcomeOf(const RestReply& reply)
{
    const auto document = parseXml(reply.body);
    return reply.status == 200 ? "200" : std::to_string(reply.status) + " " + document.only("code");
}

RestReply ServiceUser::send(const std::string& method, const std::string& target, const std::string& body,
                            const std::function<void()>& meanwhile, const std::string& headers)
{
    last = {method, target};
    Wire wire(static_cast<std::uint16_t>(std::stoi(url.substr(url.rfind(':') + 1))));
    wire.send(requestText(method, target, sessionId, body, headers));
    auto reply = wire.receive(method == "HEAD", meanwhile);
    if (!reply) throw std::runtime_error(method + " " + target + ": no reply");
    return *reply;
}

std::string ServiceUser::targetOf(const std::string& resource, const Place& item, const std::string& query)
{
    auto target = root + resource + percentEncoded(item.path, true) + "?locale=en_US" + query;
    if (!item.bucket.empty()) target += "&bucket=" + percentEncoded(item.bucket);
    return target;
}

RestReply ServiceUser::onItem(const std::string& method, const std::string& resource, const Place& item,
                              const std::string& query, const std::string& body)
{
    return send(method, targetOf(resource, item, query), body);
}

RestReply ServiceUser::login(const std::string& token)
{
    sessionId.clear();
    auto reply = send("GET", root + "login", {}, {}, "x-qz-authentication-token: " + token + "\r\n");
    if (reply.status == 200) sessionId = parseXml(reply.body).only("TarnSessionId");
    return reply;
}

RestReply ServiceUser::logout()
{
    return send("GET", root + "logout");
}

RestReply ServiceUser::ping()
{
    return send("GET", root + "ping");
}

RestReply ServiceUser::put(const Place& file, const std::string& content, const std::string& mode,
                           bool createNewVersion)
{
    return onItem("PUT", "files", file, "&createMode=" + mode + "&createNewVersion=" + word(createNewVersion),
                  content);
}

RestReply ServiceUser::read(const Place& file, const std::function<void()>& meanwhile)
{
    return send("GET", targetOf("files", file), {}, meanwhile);
}

RestReply ServiceUser::readVersion(const Place& file, const std::string& versionId, const std::string& label)
{
    return onItem("GET", "files", file, versionQuery(versionId, label));
}

RestReply ServiceUser::deleteFile(const Place& file)
{
    return onItem("DELETE", "files", file);
}

RestReply ServiceUser::attributes(const Place& item)
{
    return onItem("GET", "filesystem", item);
}

RestReply ServiceUser::openReadOnly(const Place& file)
{
    return send("PUT", root + "filehandle?" + pathAndBucket(file) + "&accessMode=readOnly");
}

RestReply ServiceUser::openReadWrite(const Place& file, const std::string& mode, bool truncate)
{
    return send("PUT", root + "filehandle?" + pathAndBucket(file) +
                           "&accessMode=readWrite&createMode=" + mode + "&truncate=" + word(truncate));
}

RestReply ServiceUser::closeHandle(const std::string& id, bool commit, bool createNewVersion)
{
    return send("DELETE", root + "filehandle/" + percentEncoded(id) +
                              "?handleOperation=" + (commit ? "COMMIT_CHANGES" : "ABORT_CHANGES") +
                              "&createNewVersion=" + word(createNewVersion));
}

RestReply ServiceUser::createFolder(const Place& folder)
{
    return onItem("PUT", "folders", folder);
}

RestReply ServiceUser::list(const Place& folder)
{
    return onItem("GET", "folders", folder);
}

RestReply ServiceUser::deleteFolder(const Place& folder, bool forceRecursive)
{
    return onItem("DELETE", "folders", folder, "&forceRecursive=" + word(forceRecursive));
}

RestReply ServiceUser::move(const Place& item, const Place& target, bool overwrite)
{
    return onItem("PUT", "filesystem", item,
                  "&targetPath=" + percentEncoded(target.path) + "&targetBucket=" +
                      percentEncoded(target.bucket) + "&moveTargetOverwrite=" + word(overwrite));
}

RestReply ServiceUser::grant(const Place& item, const std::string& subject, bool allowNonExistingUser)
{
    return send("PUT", root + "permissions?" + pathAndBucket(item) + "&subject=" + percentEncoded(subject) +
                           "&operation=READ_ONLY&allowNonExistingUser=" + word(allowNonExistingUser));
}

RestReply ServiceUser::revoke(const std::string& permissionId)
{
    return send("DELETE", root + "permissions/" + percentEncoded(permissionId));
}

RestReply ServiceUser::grants()
{
    return send("GET", root + "permissions");
}

RestReply ServiceUser::grantsOn(const Place& item)
{
    return send("GET", root + "permissions?" + pathAndBucket(item));
}

RestReply ServiceUser::sharedContent()
{
    return send("GET", root + "sharedcontent");
}

RestReply ServiceUser::link(const Place& item)
{
    return onItem("GET", "public/urls", item);
}

RestReply ServiceUser::versions(const Place& file)
{
    return onItem("GET", "versions/files", file);
}

RestReply ServiceUser::restore(const Place& file, const std::string& versionId, const std::string& label,
                               bool createNewVersion)
{
    return onItem("PUT", "versions/files", file,
                  versionQuery(versionId, label) + "&createNewVersion=" + word(createNewVersion));
}

} // namespace tarnd::test
