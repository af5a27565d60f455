#include "cli/remote/PublicLinks.h"

#include "cli/remote/RemotePath.h"
#include "cli/terminal/Text.h"
#include "tarn/publiclinks/PublicLinkMessages.h"

#include <algorithm>
#include <iterator>

namespace tarncli {

using namespace connector::tarn;

namespace {

/// What makes a link the one it is, whatever name its service had when it was made.
std::string tokenIn(const std::string& url)
{
    constexpr std::string_view before = "/public/";
    const auto place = url.find(before);
    if (place == std::string::npos) return {};
    const auto start = place + before.size();
    return url.substr(start, url.find_first_of("/?#", start) - start);
}

bool isPath(const std::string& what)
{
    return what.starts_with('/') || what.find(":/") != std::string::npos;
}

} // namespace

std::vector<PublicLink> listLinks(Connection& connection)
{
    return connection.call([&] { return connection.links().listLinks(std::make_unique<PublicLinkList>()); })
        ->links;
}

std::vector<PublicLink> chooseLinks(const std::vector<PublicLink>& links, const std::string& what,
                                    const std::string& user)
{
    const bool isUrl = what.find("://") != std::string::npos;
    const auto token = isUrl ? tokenIn(what) : "";
    const auto item = !isUrl && isPath(what) ? RemotePath::parse(what) : RemotePath{};
    const auto isMeant = [&](const PublicLink& link) {
        if (isUrl) return !token.empty() && tokenIn(toUtf8(link.url)) == token;
        if (item.path.empty()) return link.linkId == what;
        return toUtf8(link.path) == item.path && (item.bucket.empty() || item.bucket == user);
    };
    std::vector<PublicLink> meant;
    std::copy_if(links.begin(), links.end(), std::back_inserter(meant), isMeant);
    return meant;
}

bool isForThisMachineOnly(const std::string& url)
{
    const auto start = url.find("://");
    if (start == std::string::npos) return false;
    const auto host = url.substr(start + 3, url.find('/', start + 3) - start - 3);
    return host.starts_with("127.") || host.starts_with("[::1]") || host == "localhost" ||
           host.starts_with("localhost:");
}

} // namespace tarncli
