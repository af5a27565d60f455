#include "cli/service/ReplyCheck.h"

#include <algorithm>
#include <string_view>

namespace tarncli {

namespace {

/// The name of the root element; empty when something else than a declaration and comments stands before it.
std::string_view rootOf(std::string_view document)
{
    const auto skip = [&](std::string_view begin, std::string_view end) {
        if (!document.starts_with(begin)) return false;
        const auto found = document.find(end, begin.size());
        document.remove_prefix(found == std::string_view::npos ? document.size() : found + end.size());
        return true;
    };
    skip("\xEF\xBB\xBF", "");
    do
        document.remove_prefix(std::min(document.find_first_not_of(" \t\r\n"), document.size()));
    while (skip("<?", "?>") || skip("<!--", "-->"));
    if (!document.starts_with('<')) return {};
    document.remove_prefix(1);
    return document.substr(0, document.find_first_of(" \t\r\n/>"));
}

bool isType(std::string_view header, std::string_view type)
{
    if (!header.starts_with(type)) return false;
    header.remove_prefix(type.size());
    return header.empty() || header.front() == ';' || header.front() == ' ';
}

/// One that was cut short is no document. The library would say so, but not that a change may have happened.
bool isDocument(std::string_view text, const std::string& root)
{
    const auto end = text.find_last_not_of(" \t\r\n") + 1;
    const auto trimmed = text.substr(0, end);
    return rootOf(text) == root &&
           (trimmed.ends_with("</" + root + ">") || trimmed.ends_with("<" + root + "/>"));
}

bool isTarn(const connector::host::ReceivedReply& reply)
{
    if (reply.isContent) return isType(reply.contentType, "application/octet-stream");
    return isType(reply.contentType, "application/xml") &&
           isDocument(reply.body, reply.status == 200 ? "Response" : "Error");
}

} // namespace

std::string whyNotTarn(const connector::host::ReceivedReply& reply)
{
    if (isTarn(reply)) return {};
    if (connector::host::isGatewayStatus(reply.status))
        return "a gateway answers there with status " + std::to_string(reply.status) +
               ", and the service behind it does not.";
    return "what answers there, with status " + std::to_string(reply.status) +
           ", does not look like a Tarn service. Check the endpoint; a proxy or the login page of a network "
           "may have answered in its place.";
}

} // namespace tarncli
