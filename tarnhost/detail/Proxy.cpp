#include "tarnhost/detail/Proxy.h"

#include "tarnhost/HostErrors.h"
#include "tarnhost/detail/UrlText.h"

#include <algorithm>
#include <array>
#include <stdexcept>
#include <string_view>

namespace connector::host::detail {
namespace {

constexpr std::array<std::string_view, 6> schemes = {"http",    "https",  "socks4",
                                                     "socks4a", "socks5", "socks5h"};

[[noreturn]] void refuse(const std::string& reason)
{
    throw std::invalid_argument(errors::badProxy(reason));
}

UrlText taken(const std::string& given)
{
    try {
        return {given.find("://") == std::string::npos ? "http://" + given : given, CURLU_NON_SUPPORT_SCHEME};
    } catch (const std::invalid_argument& fault) {
        refuse(fault.what());
    }
}

} // namespace

Proxy::Proxy(const std::string& given)
{
    if (given.empty()) return;
    UrlText text = taken(given);
    const auto scheme = text.part(CURLUPART_SCHEME);
    if (std::find(schemes.begin(), schemes.end(), scheme) == schemes.end())
        refuse("the scheme is none of http, https and socks.");
    user = text.part(CURLUPART_USER, CURLU_URLDECODE);
    password = text.part(CURLUPART_PASSWORD, CURLU_URLDECODE);
    text.remove(CURLUPART_USER);
    text.remove(CURLUPART_PASSWORD);
    url = text.part(CURLUPART_URL);
    const auto port = text.part(CURLUPART_PORT);
    // What libcurl takes where none is named.
    peer = text.part(CURLUPART_HOST) + ":" + (!port.empty() ? port : scheme == "https" ? "443" : "1080");
}

} // namespace connector::host::detail
