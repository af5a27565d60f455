#include "tests/tarnd/access/ServiceUser.h"

#include <cctype>
#include <stdexcept>
#include <string_view>

namespace tarnd::test {

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

RestReply require(RestReply reply)
{
    if (reply.status != 200) throw std::runtime_error("refused: " + reply.body);
    return reply;
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

RestReply ServiceUser::login(const std::string& token)
{
    sessionId.clear();
    auto reply = send("GET", root + "login", {}, {}, "x-qz-authentication-token: " + token + "\r\n");
    if (reply.status == 200) sessionId = parseXml(reply.body).only("TarnSessionId");
    return reply;
}

} // namespace tarnd::test
