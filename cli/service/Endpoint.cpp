#include "cli/service/Endpoint.h"

#include "cli/terminal/Failure.h"
#include "cli/terminal/Text.h"

#include <charconv>
#include <string_view>

namespace tarncli {

namespace {

/// What no URL has to escape: paths are appended to the endpoint as it stands.
constexpr std::string_view unreserved = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";

bool isPort(std::string_view text)
{
    unsigned port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    return error == std::errc() && end == text.data() + text.size() && port > 0 && port < 65536;
}

bool isAllowed(std::string_view text, char also)
{
    for (const char c : text)
        if (c != also && unreserved.find(c) == std::string_view::npos) return false;
    return true;
}

/// What is wrong with the part behind "://"; empty when nothing is.
std::string whyBad(std::string_view rest)
{
    const auto authority = rest.substr(0, rest.find('/'));
    const auto path = rest.substr(authority.size());
    const auto colon = authority.find(':');
    const auto host = authority.substr(0, colon);
    if (authority.find('@') != std::string_view::npos)
        return "leave the user out; `tarn login USER` names it";
    if (!authority.empty() && authority.front() == '[')
        return "IPv6 addresses cannot be used; give a host name instead";
    if (rest.find_first_of("?#") != std::string_view::npos) return "it contains a '?' or '#'";
    if (host.empty() || !isAllowed(host, '.')) return "it names no host";
    if (colon != std::string_view::npos && !isPort(authority.substr(colon + 1)))
        return "the port is not a number from 1 to 65535";
    if (!isAllowed(path, '/')) return "its path contains characters that cannot be used";
    return {};
}

} // namespace

std::string checkedEndpoint(const std::string& url)
{
    const auto bad = [&](const std::string& why) {
        return usageError("The endpoint \"" + escaped(url) + "\" cannot be used: " + why + ".");
    };
    const std::string_view text = url;
    const auto end = text.find("://");
    const auto scheme = text.substr(0, end);
    if (end == text.npos || (scheme != "http" && scheme != "https"))
        throw bad("it must be a URL such as https://files.example.org");
    if (const auto why = whyBad(text.substr(scheme.size() + 3)); !why.empty()) throw bad(why);
    return url.substr(0, url.find_last_not_of('/') + 1);
}

std::string hostOf(const std::string& endpoint)
{
    const auto begin = endpoint.find("://") + 3;
    return endpoint.substr(begin, endpoint.find_first_of(":/", begin) - begin);
}

bool isLoopback(const std::string& endpoint)
{
    const auto host = hostOf(endpoint);
    // A name such as 127.example.org is anybody's.
    const bool isAddress = host.find_first_not_of("0123456789.") == std::string::npos;
    return host == "localhost" || (isAddress && host.starts_with("127."));
}

} // namespace tarncli
